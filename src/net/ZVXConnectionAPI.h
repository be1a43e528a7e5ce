#pragma once

#include "ZuveroError.h"

#include <QByteArray>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <optional>

/*!
    What the connection needs from the object that owns it (the facade):
    the settings it reads each time it builds a request, and the few
    things it tells back. Read at the moment of use, so that a change of
    host, token or identity applies to the next request.
*/
class ZVXConnectionAPI
{
public:
    using RegistrationCompletion = std::function<void(bool success, const ZuveroError &error)>;
    //! The context sent with the next message; compared by identity, so that a newer one survives.
    using MessageContext = std::shared_ptr<const QVariantMap>;

    virtual ~ZVXConnectionAPI() = default;

    virtual QString hostname() const = 0;
    virtual QString language() const = 0;
    //! Where map tiles come from ("{z}", "{x}", "{y}" in it), and the credit drawn with them.
    virtual QString mapTileURLTemplate() const = 0;
    virtual QString mapTileAttribution() const = 0;
    virtual QString sdkVersion() const = 0;
    virtual std::optional<QString> jwt() = 0;
    virtual std::optional<QByteArray> deviceToken() = 0;
    virtual std::optional<QString> userName() const = 0;
    virtual bool developmentAPNS() const = 0;
    virtual MessageContext messageContext() const = 0;
    virtual void clearMessageContext() = 0;
    virtual qint64 unreadCount() const = 0;

    virtual void registerIfNeeded(RegistrationCompletion completion) = 0;
    virtual void beginNetworkActivity() = 0;
    virtual void endNetworkActivity() = 0;
    virtual void updateUnreadCount(qint64 count) = 0;
    virtual void setPollingInterval(double seconds) = 0;
    virtual void updateWelcomeMessage(const QString &message) = 0;
};
