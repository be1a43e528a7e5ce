#pragma once

#include "ZVXGenerationCounter.h"
#include "ZuveroConnection.h"

#include <QObject>

//! What registration needs from its facade.
class ZVXRegistrationAPI
{
public:
    virtual ~ZVXRegistrationAPI() = default;

    virtual bool needsRegistration() const = 0;
    virtual void setNeedsRegistration(bool needs) = 0;
    //! Whether there is a token to register with (one set, or one the secret can sign).
    virtual bool hasToken() = 0;
    //! The connection's registration request.
    virtual void registerApp(ZuveroConnection::Completion completion) = 0;
    //! The server knows the device now: what waited for it may go.
    virtual void didRegister() = 0;
};

/*!
    When the facade registers with the server and how requests for it
    merge: calls without a completion made in one turn of the event loop
    give one request, the last; every call that finds registration needed
    and has a completion gets a request and its answer.

    A call that finds no registration needed while one is under way waits
    for it, and is answered after the caller that started it, in the order
    of the calls: so the requests that follow registrations keep the order
    in which they were asked for (a message sent just after another never
    overtakes it while the first waits for its registration).
*/
class ZVXRegistration : public QObject
{
    Q_OBJECT

public:
    explicit ZVXRegistration(ZVXRegistrationAPI *facade);

    //! Main thread.
    void registerIfNeeded(const ZuveroConnection::Completion &completion);

private:
    //! A registration scheduled earlier has ended (answered or superseded).
    void registrationEnded();

    ZVXRegistrationAPI *m_facade;
    ZVXGenerationCounter m_cycle;
    //! Registrations scheduled and not yet ended.
    int m_underWay = 0;
    QList<ZuveroConnection::Completion> m_waiting;
};
