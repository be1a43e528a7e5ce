#include "ZVXConfiguration.h"

#include "ZVXJSON.h"
#include "ZVXLocalization.h"
#include "ZVXLogging.h"
#include "ZVXPropertyList.h"
#include "ZVXResources.h"
#include "ZuveroAppearance.h"

#include <QFile>
#include <QFontDatabase>
#include <QGuiApplication>

namespace ZVXConfiguration {

namespace {

QStringList keys(std::initializer_list<const char *> names)
{
    QStringList list;
    for (const char *name : names)
        list.append(QLatin1String(name));
    return list;
}

void logCannotConfigure(const QString &rest)
{
    ZVXLog(QStringLiteral("Could not configure ") + rest);
}

bool isText(const QVariant &value)
{
    return value.metaType().id() == QMetaType::QString;
}

bool isDictionary(const QVariant &value)
{
    return value.metaType().id() == QMetaType::QVariantMap;
}

// Larger sizes (infinity and non-numbers included) are mistakes, and would not fit a pixel size.
constexpr qreal MaximumFontSize = 1000;

// A font by family name, or "Family-Style" as font names are often written.
std::optional<QFont> fontNamed(const QString &name, qreal size)
{
    if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance())
        || !(size > 0 && size <= MaximumFontSize))
        return std::nullopt;
    const QStringList families = QFontDatabase::families();
    for (const QString &family : families) {
        if (family.compare(name, Qt::CaseInsensitive) == 0) {
            QFont font(family);
            font.setPixelSize(qRound(size));
            return font;
        }
    }
    const qsizetype dash = name.lastIndexOf(QLatin1Char('-'));
    if (dash > 0) {
        const QString family = name.left(dash);
        const QString style = name.mid(dash + 1);
        for (const QString &candidate : families) {
            if (candidate.compare(family, Qt::CaseInsensitive) != 0)
                continue;
            for (const QString &known : QFontDatabase::styles(candidate)) {
                if (known.compare(style, Qt::CaseInsensitive) == 0) {
                    QFont font = QFontDatabase::font(candidate, known, 12);
                    font.setPixelSize(qRound(size));
                    return font;
                }
            }
        }
    }
    return std::nullopt;
}

// A picture of the library's bundle, a Qt resource or a file.
QImage imageNamed(const QString &name)
{
    const QImage bundled = ZVXResources::image(name, 2.0);
    return bundled.isNull() ? QImage(name) : bundled;
}

QVariant normalized(const QString &key, const QVariant &value, bool *keep)
{
    *keep = true;
    if (localizableStringCustomizationKeys().contains(key) && isText(value)) {
        *keep = !value.toString().isEmpty();
        return ZVXLocalization::hostString(value.toString());
    }
    if (colorCustomizationKeys().contains(key) && isText(value)) {
        *keep = false;
        if (value.toString().isEmpty())
            return {};
        if (const std::optional<QColor> color = zuveroColorWithHexCode(value.toString())) {
            *keep = true;
            return *color;
        }
        logCannotConfigure(
            QStringLiteral("%1, format of %2 is not valid.").arg(key, value.toString()));
        return {};
    }
    if (fontCustomizationKeys().contains(key) && isDictionary(value)) {
        *keep = false;
        const QVariantMap font = value.toMap();
        if (!font.contains(QStringLiteral("name")) || !font.contains(QStringLiteral("size"))) {
            logCannotConfigure(QStringLiteral("%1, you must provide name & size.").arg(key));
            return {};
        }
        const QString name = font.value(QStringLiteral("name")).toString();
        const QVariant size = font.value(QStringLiteral("size"));
        if (const std::optional<QFont> found = fontNamed(name, size.toDouble())) {
            *keep = true;
            return QVariant::fromValue(*found);
        }
        logCannotConfigure(QStringLiteral("%1 with name = %2 & size = %3.")
                               .arg(key, name, ZVXJSON::describe(size)));
        return {};
    }
    const auto number = [](const QVariantMap &map, const char *name) {
        return map.value(QLatin1String(name)).toDouble();
    };
    if (insetsCustomizationKeys().contains(key) && isDictionary(value)) {
        const QVariantMap insets = value.toMap();
        // "right" may be left out and counts as 0: configurations rely on it.
        if (insets.contains(QStringLiteral("top")) && insets.contains(QStringLiteral("left"))
            && insets.contains(QStringLiteral("bottom")))
            return QVariant::fromValue(QMarginsF(number(insets, "left"), number(insets, "top"),
                                                 number(insets, "right"),
                                                 number(insets, "bottom")));
        *keep = false;
        logCannotConfigure(
            QStringLiteral("%1, you must provide top & left & bottom & right.").arg(key));
        return {};
    }
    if (imageCustomizationKeys().contains(key) && isDictionary(value)) {
        *keep = false;
        const QVariantMap image = value.toMap();
        for (const char *required : {"imgName", "top", "left", "bottom", "right"}) {
            if (!image.contains(QLatin1String(required))) {
                logCannotConfigure(
                    QStringLiteral("%1, you must provide top & left & bottom & right & imgName.")
                        .arg(key));
                return {};
            }
        }
        const QString name = image.value(QStringLiteral("imgName")).toString();
        const QImage picture = imageNamed(name);
        if (picture.isNull()) {
            logCannotConfigure(QStringLiteral("%1, there is no image named %2.").arg(key, name));
            return {};
        }
        *keep = true;
        return QVariant::fromValue(
            ZuveroResizableImage{picture,
                                 QMarginsF(number(image, "left"), number(image, "top"),
                                           number(image, "right"), number(image, "bottom")),
                                 true});
    }
    // Credentials, the language, the map settings, the usage reasons, and values of another
    // type pass unchanged.
    return value;
}

} // namespace

QStringList requiredConfigurationKeys()
{
    return keys({"hostname", "apiKey", "apiSecret"});
}

QStringList mapConfigurationKeys()
{
    return keys({"mapTileURLTemplate", "mapTileAttribution", "geocoderURL"});
}

QStringList usageDescriptionKeys()
{
    return keys({"NSPhotoLibraryUsageDescription", "NSCameraUsageDescription",
                 "NSLocationWhenInUseUsageDescription"});
}

QStringList localizableStringCustomizationKeys()
{
    return keys({"title"});
}

QStringList colorCustomizationKeys()
{
    // "interactiveNotification" is a flag, listed here as it always was: a
    // flag is no text, so it passes through unconverted.
    return keys({"cursorTintColor",
                 "tintColor",
                 "navigationBarItemTintColor",
                 "sendTintColor",
                 "navigationBarColor",
                 "navigationBarTintColor",
                 "agentMessageTextColor",
                 "userMessageTextColor",
                 "userMessageBackgroundColor",
                 "systemMessageTextColor",
                 "systemMessageBackgroundColor",
                 "agentMessageBackgroundColor",
                 "errorIconColor",
                 "dateTextColor",
                 "loadMoreMessagesButtonTextColor",
                 "agentNameColor",
                 "inputBarTintColor",
                 "disabledSendButtonColor",
                 "navigationBarTitleColor",
                 "inputBarBackgroundColor",
                 "interactiveNotification"});
}

QStringList fontCustomizationKeys()
{
    return keys({"systemMessageFont", "messageFont", "agentNameFont", "dateFont", "defaultFont",
                 "messageFieldFont"});
}

QStringList insetsCustomizationKeys()
{
    return keys({"agentMessageBubbleInsets", "userMessageBubbleInsets",
                 "userAttachmentBubbleInsets", "systemMessageBubbleInsets", "agentNameInsets",
                 "agentAttachmentBubbleInsets"});
}

QStringList imageCustomizationKeys()
{
    return keys({"agentMessageBubbleImage", "userMessageBubbleImage", "userAttachmentBubbleImage",
                 "systemMessageBubbleImage", "attachmentIcon", "agentAttachmentBubbleImage"});
}

QStringList allCustomizationKeys()
{
    return localizableStringCustomizationKeys() + colorCustomizationKeys() + fontCustomizationKeys()
        + insetsCustomizationKeys() + imageCustomizationKeys();
}

std::optional<QColor> zuveroColorWithHexCode(const QString &text)
{
    if (text.isEmpty())
        return std::nullopt;
    const QString digits = text.startsWith(QLatin1Char('#')) ? text.mid(1) : text;
    if (digits.size() != 6)
        return std::nullopt;
    // Read as one hexadecimal number, which ends at the first character that is not a digit.
    uint value = 0;
    for (const QChar c : digits.toUpper()) {
        const int digit = QStringLiteral("0123456789ABCDEF").indexOf(c);
        if (digit < 0)
            break;
        value = value * 16 + uint(digit);
    }
    return QColor((value >> 16) & 0xff, (value >> 8) & 0xff, value & 0xff);
}

QVariantMap normalizeConfigurationDictionary(const QVariantMap &raw)
{
    QVariantMap typed;
    const QStringList order = requiredConfigurationKeys() + localizableStringCustomizationKeys()
        + fontCustomizationKeys() + colorCustomizationKeys() + insetsCustomizationKeys()
        + imageCustomizationKeys() + QStringList{QStringLiteral("language")}
        + mapConfigurationKeys() + usageDescriptionKeys();
    for (const QString &key : order) {
        const auto entry = raw.constFind(key);
        if (entry == raw.cend())
            continue;
        bool keep = false;
        const QVariant value = normalized(key, *entry, &keep);
        if (keep)
            typed.insert(key, value);
    }
    // The three tints follow the main one unless set on their own.
    const QString tint = QStringLiteral("tintColor");
    for (const char *follower :
         {"cursorTintColor", "navigationBarItemTintColor", "sendTintColor"}) {
        if (!typed.contains(QLatin1String(follower)) && typed.contains(tint))
            typed.insert(QLatin1String(follower), typed.value(tint));
    }
    return typed;
}

std::optional<QVariantMap> readConfigurationFile(const QString &path, ZuveroError *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = ZuveroError::withDescription(
                QString(ZuveroConfigurationErrorDomain), ZuveroConfigurationErrorUnreadable,
                QStringLiteral("Cannot read %1: %2").arg(path, file.errorString()));
        return std::nullopt;
    }
    const QByteArray content = file.readAll();
    const bool json = content.trimmed().startsWith('{');
    const std::optional<QVariant> value
        = json ? ZVXJSON::parse(content, error) : ZVXPropertyList::parse(content, error);
    if (!value)
        return std::nullopt;
    if (value->metaType().id() != QMetaType::QVariantMap) {
        if (error)
            *error = ZuveroError::withDescription(
                QString(ZuveroConfigurationErrorDomain), ZuveroConfigurationErrorUnreadable,
                QStringLiteral("%1 does not hold a dictionary").arg(path));
        return std::nullopt;
    }
    return value->toMap();
}

} // namespace ZVXConfiguration
