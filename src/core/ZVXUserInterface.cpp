#include "ZVXUserInterface.h"

#include "ZVXLogging.h"

ZVXUserInterface::~ZVXUserInterface() = default;

QWidget *ZVXHeadlessUserInterface::makeChatScreen(Zuvero *)
{
    return nullptr;
}

QWidget *ZVXHeadlessUserInterface::backgroundView()
{
    return nullptr;
}

void ZVXHeadlessUserInterface::presentChatScreen(Zuvero *)
{
    ZVXLog(QStringLiteral("Zuvero: no chat screen without widgets; the host shows the chat."));
}

void ZVXHeadlessUserInterface::showBanner(const ZuveroChatMessagePtr &message, Zuvero *)
{
    ZVXLog(QStringLiteral("Zuvero: new message from %1: %2")
               .arg(message->userName().value_or(message->sender()),
                    message->text().value_or(QString())));
}

void ZVXHeadlessUserInterface::showAlert(const ZVXAlert &alert)
{
    ZVXLog(QStringLiteral("Zuvero: alert \"%1\": %2").arg(alert.title, alert.message));
}

void ZVXHeadlessUserInterface::showToast(const QString &title, const QString &text, double)
{
    ZVXLog(QStringLiteral("Zuvero: toast \"%1\": %2").arg(title, text));
}
