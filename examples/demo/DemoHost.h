#pragma once

#include <QObject>
#include <QPointer>
#include <QSslConfiguration>
#include <QUrl>

#include <memory>

class DemoPushStream;
class QWidget;
#include <Zuvero/Zuvero.h>
struct ZuveroDelegate;

//! What the demo is started with (see main.cpp for the options).
struct DemoSettings
{
    QUrl origin; // https://host:port of the chat server
    QString apiSecret;
    QString authorityFile; // a certificate authority to trust besides the system's
    QString configurationFile; // the look: a ZuveroConfig property list
    QString userIdentifier;
    QString userName;
};

/*
    Everything the demo does with the library, apart from its windows: the
    facade made from the shipped configuration, the delegate that presents
    the chat screen in a window of the demo's own, the push channel, and
    switching users.
*/
class DemoHost : public QObject
{
    Q_OBJECT

public:
    //! Null, with \a error saying why, when the settings cannot make a facade.
    static std::unique_ptr<DemoHost> create(const DemoSettings &settings, QString *error);
    ~DemoHost() override;

    Zuvero *zuvero() const { return m_zuvero; }
    DemoPushStream *pushStream() const { return m_push; }
    //! The window the chat screen is in, while it is open.
    QWidget *chatWindow() const { return m_chatWindow; }
    //! The window the chat opens over.
    void setMainWindow(QWidget *window) { m_mainWindow = window; }

    //! Registers, then opens the push stream and asks for the unread count.
    void start();
    //! The user asked for the chat: the library shows it, through presentChat().
    void openChat();
    void closeChat();
    //! Another user on this device: their conversation, not the previous one's.
    void switchUser(const QString &identifier, const QString &name);

Q_SIGNALS:
    void unreadCountChanged(qint64 count);
    void chatOpened(QWidget *window);
    void chatClosed();
    void userChanged();
    void registered(bool success);

private:
    DemoHost() = default;
    void presentChat();
    void registerThenListen();

    QPointer<Zuvero> m_zuvero;
    std::shared_ptr<ZuveroDelegate> m_delegate;
    DemoPushStream *m_push = nullptr;
    QPointer<QWidget> m_chatWindow;
    QPointer<QWidget> m_mainWindow;
};
