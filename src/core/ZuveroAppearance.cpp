#include "ZuveroAppearance.h"

#include "ZVXResources.h"

#include <QFontDatabase>
#include <QGuiApplication>

#include <variant>

namespace {

// Bubbles are drawn at twice their size so that they stay sharp on dense screens.
constexpr qreal BubbleScale = 2.0;

// Insets are written as (top, left, bottom, right), the order configuration files use.
QMarginsF insets(qreal top, qreal left, qreal bottom, qreal right)
{
    return QMarginsF(left, top, right, bottom);
}

ZuveroResizableImage bundleImage(const char *name, const QMarginsF &capInsets, bool isTemplate)
{
    return {ZVXResources::image(QStringLiteral("Zuvero.bundle/") + QLatin1String(name), BubbleScale),
            capInsets, isTemplate};
}

QFont systemFont(int pixelSize, bool bold = false)
{
    QFont font = qobject_cast<QGuiApplication *>(QCoreApplication::instance())
        ? QFontDatabase::systemFont(QFontDatabase::GeneralFont)
        : QFont();
    font.setPixelSize(pixelSize);
    font.setBold(bold);
    return font;
}

using Member = std::variant<QColor ZuveroAppearance::*, std::optional<QFont> ZuveroAppearance::*,
                            QMarginsF ZuveroAppearance::*, ZuveroResizableImage ZuveroAppearance::*>;

const QHash<QString, Member> &fields()
{
    static const QHash<QString, Member> table = {
        {QStringLiteral("tintColor"), &ZuveroAppearance::tintColor},
        {QStringLiteral("cursorTintColor"), &ZuveroAppearance::cursorTintColor},
        {QStringLiteral("sendTintColor"), &ZuveroAppearance::sendTintColor},
        {QStringLiteral("navigationBarItemTintColor"), &ZuveroAppearance::navigationBarItemTintColor},
        {QStringLiteral("navigationBarColor"), &ZuveroAppearance::navigationBarColor},
        {QStringLiteral("navigationBarTintColor"), &ZuveroAppearance::navigationBarTintColor},
        {QStringLiteral("navigationBarTitleColor"), &ZuveroAppearance::navigationBarTitleColor},
        {QStringLiteral("inputBarTintColor"), &ZuveroAppearance::inputBarTintColor},
        {QStringLiteral("inputBarBackgroundColor"), &ZuveroAppearance::inputBarBackgroundColor},
        {QStringLiteral("disabledSendButtonColor"), &ZuveroAppearance::disabledSendButtonColor},
        {QStringLiteral("userMessageTextColor"), &ZuveroAppearance::userMessageTextColor},
        {QStringLiteral("agentMessageTextColor"), &ZuveroAppearance::agentMessageTextColor},
        {QStringLiteral("systemMessageTextColor"), &ZuveroAppearance::systemMessageTextColor},
        {QStringLiteral("userMessageBackgroundColor"), &ZuveroAppearance::userMessageBackgroundColor},
        {QStringLiteral("agentMessageBackgroundColor"), &ZuveroAppearance::agentMessageBackgroundColor},
        {QStringLiteral("systemMessageBackgroundColor"), &ZuveroAppearance::systemMessageBackgroundColor},
        {QStringLiteral("errorIconColor"), &ZuveroAppearance::errorIconColor},
        {QStringLiteral("dateTextColor"), &ZuveroAppearance::dateTextColor},
        {QStringLiteral("loadMoreMessagesButtonTextColor"),
         &ZuveroAppearance::loadMoreMessagesButtonTextColor},
        {QStringLiteral("agentNameColor"), &ZuveroAppearance::agentNameColor},
        {QStringLiteral("defaultFont"), &ZuveroAppearance::defaultFont},
        {QStringLiteral("messageFont"), &ZuveroAppearance::messageFont},
        {QStringLiteral("systemMessageFont"), &ZuveroAppearance::systemMessageFont},
        {QStringLiteral("dateFont"), &ZuveroAppearance::dateFont},
        {QStringLiteral("agentNameFont"), &ZuveroAppearance::agentNameFont},
        {QStringLiteral("messageFieldFont"), &ZuveroAppearance::messageFieldFont},
        {QStringLiteral("userMessageBubbleInsets"), &ZuveroAppearance::userMessageBubbleInsets},
        {QStringLiteral("agentMessageBubbleInsets"), &ZuveroAppearance::agentMessageBubbleInsets},
        {QStringLiteral("systemMessageBubbleInsets"), &ZuveroAppearance::systemMessageBubbleInsets},
        {QStringLiteral("userAttachmentBubbleInsets"), &ZuveroAppearance::userAttachmentBubbleInsets},
        {QStringLiteral("agentAttachmentBubbleInsets"), &ZuveroAppearance::agentAttachmentBubbleInsets},
        {QStringLiteral("agentNameInsets"), &ZuveroAppearance::agentNameInsets},
        {QStringLiteral("userMessageBubbleImage"), &ZuveroAppearance::userMessageBubbleImage},
        {QStringLiteral("agentMessageBubbleImage"), &ZuveroAppearance::agentMessageBubbleImage},
        {QStringLiteral("systemMessageBubbleImage"), &ZuveroAppearance::systemMessageBubbleImage},
        {QStringLiteral("userAttachmentBubbleImage"), &ZuveroAppearance::userAttachmentBubbleImage},
        {QStringLiteral("agentAttachmentBubbleImage"), &ZuveroAppearance::agentAttachmentBubbleImage},
        {QStringLiteral("attachmentIcon"), &ZuveroAppearance::attachmentIcon},
    };
    return table;
}

} // namespace

ZuveroAppearance ZuveroAppearance::defaults()
{
    ZuveroAppearance appearance;
    appearance.tintColor = QColor::fromRgbF(0.06f, 0.503f, 0.942f);
    appearance.userMessageTextColor = Qt::white;
    appearance.agentMessageTextColor = Qt::black;
    appearance.systemMessageTextColor = QColor::fromRgbF(0.4f, 0.4f, 0.4f);
    appearance.systemMessageBackgroundColor = QColor::fromRgbF(0.7f, 0.7f, 0.7f);
    appearance.userMessageBackgroundColor = QColor::fromRgbF(0.145f, 0.546f, 0.984f);
    appearance.agentMessageBackgroundColor = QColor::fromRgbF(0.873f, 0.872f, 0.897f);
    appearance.dateTextColor = QColor::fromRgbF(0.5f, 0.5f, 0.5f);
    appearance.agentNameColor = QColor::fromRgbF(0.5f, 0.5f, 0.5f);

    // The agent's bubble mirrors the user's; the system bubble takes the agent's, deliberately.
    const QMarginsF userCaps = insets(18, 19, 18, 36);
    const QMarginsF agentCaps = insets(18, 36, 18, 19);
    appearance.attachmentIcon = {ZVXResources::image(QStringLiteral("Zuvero.bundle/ZuveroAttachmentIcon"),
                                                     BubbleScale),
                                 {}, false};
    appearance.userMessageBubbleImage = bundleImage("ZuveroUserBubble", userCaps, true);
    appearance.agentMessageBubbleImage = bundleImage("ZuveroAgentBubble", agentCaps, true);
    appearance.systemMessageBubbleImage = bundleImage("ZuveroSystemBubble", agentCaps, true);
    // Attachment bubbles keep their own colours: they frame a picture.
    appearance.userAttachmentBubbleImage = bundleImage("ZuveroUserBubble", userCaps, false);
    appearance.agentAttachmentBubbleImage = bundleImage("ZuveroAgentBubble", agentCaps, false);

    appearance.agentNameInsets = insets(2, 10, 4, 10);
    appearance.userMessageBubbleInsets = insets(8, 13, 8, 28);
    appearance.agentMessageBubbleInsets = insets(8, 28, 8, 13);
    appearance.systemMessageBubbleInsets = insets(10, 30, 10, 15);
    appearance.userAttachmentBubbleInsets = insets(0, 0, 0, 10);
    appearance.agentAttachmentBubbleInsets = insets(0, 10, 0, 0);
    return appearance;
}

bool ZuveroAppearance::setValue(const QString &key, const QVariant &value)
{
    const auto field = fields().constFind(key);
    if (field == fields().cend())
        return false;
    return std::visit(
        [this, &value](auto member) {
            using Field = std::remove_reference_t<decltype(this->*member)>;
            if constexpr (std::is_same_v<Field, std::optional<QFont>>) {
                if (value.metaType().id() != QMetaType::QFont)
                    return false;
                this->*member = value.value<QFont>();
            } else {
                if (value.metaType() != QMetaType::fromType<Field>())
                    return false;
                this->*member = value.value<Field>();
            }
            return true;
        },
        *field);
}

void ZuveroAppearance::fillFonts()
{
    if (!messageFont)
        messageFont = defaultFont.value_or(systemFont(17));
    if (!systemMessageFont)
        systemMessageFont = defaultFont.value_or(systemFont(16));
    if (!dateFont)
        dateFont = defaultFont.value_or(systemFont(13));
    if (!agentNameFont)
        agentNameFont = defaultFont.value_or(systemFont(13, true));
}
