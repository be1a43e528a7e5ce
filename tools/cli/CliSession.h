#pragma once

#include "CliArguments.h"

#include <Zuvero/Zuvero.h>

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>

#include <memory>

/*!
    One run of zuvero-cli: a facade made from the arguments, and the command
    carried out with it. finished() gives the exit status: 0 success, 1 a
    server or network error, 2 a usage or input error.
*/
class CliSession : public QObject
{
    Q_OBJECT

public:
    explicit CliSession(const CliArguments &arguments, QObject *parent = nullptr);
    ~CliSession() override;

    //! Starts the command; false, with a message printed, when the facade cannot be made.
    bool start();

Q_SIGNALS:
    void finished(int exitStatus);

private:
    bool makeFacade();
    void run();
    void registerNow();
    void status();
    void send();
    void history();
    void markRead();
    void push();
    void token();
    void queue();
    void chat();

    void fail(const ZuveroError &error);
    void usageError(const QString &message);
    void succeed();
    void showProgress(double upload);

    //! Prints what is new; the \a last reload, after the end of input, ends the session.
    void chatReload(bool last = false);
    void printChatMessage(const ZuveroChatMessagePtr &message);
    void readTypedLine();

    CliArguments m_arguments;
    std::shared_ptr<ZuveroDelegate> m_delegate;
    Zuvero *m_zuvero = nullptr;
    bool m_done = false;

    // queue
    int m_activeBursts = 0;
    ZuveroChatMessageList m_queued;
    std::vector<ZuveroNotificationObserver> m_observers;
    QTimer m_retryTimer;

    // chat
    QSocketNotifier *m_input = nullptr;
    QTimer m_pollTimer;
    QSet<QString> m_shown;
    QDateTime m_lastDate;
    bool m_closing = false;
    QByteArray m_typed;
};
