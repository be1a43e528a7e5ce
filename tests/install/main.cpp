// Uses the installed public headers only: what the facade hands out must be usable with them.
#include <Zuvero/Zuvero.h>
#include <Zuvero/ZuveroData.h>

#include <QCoreApplication>
#include <QLocale>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QString key;
    auto observer = ZuveroNotificationCenter::defaultCenter()->addObserver(
        QStringLiteral("KeyMade"), nullptr, [&](const ZuveroNotification &n) {
            key = n.userInfo().value(QStringLiteral("apiKey")).toString();
        });
    const auto secret = ZuveroDataWithHexString(QStringLiteral("74657374"));
    const auto apiKey = ZuveroHexStringFromData(ZuveroSHA256(secret));
    ZuveroNotificationCenter::defaultCenter()->post(QStringLiteral("KeyMade"), nullptr,
                                                    {{QStringLiteral("apiKey"), *apiKey}});

    // The facade's reachability monitor, its notification, the configuration's keys and colours.
    Zuvero *zuvero = Zuvero::initWithApiSecret(QStringLiteral("74657374"),
                                               QStringLiteral("127.0.0.1:9"), {}, &app);
    auto reachability = ZuveroNotificationCenter::defaultCenter()->addObserver(
        ZuveroNetworkReachabilityChangedNotification, zuvero->reachability(),
        [](const ZuveroNotification &) {});
    const bool reachable = zuvero->reachability()->isReachable();
    const std::optional<QColor> colour = Zuvero::zuveroColorWithHexCode(QStringLiteral("#0F80F0"));
    const bool keysKnown = Zuvero::colorCustomizationKeys().contains(QStringLiteral("tintColor"))
        && Zuvero::allCustomizationKeys().size() > Zuvero::colorCustomizationKeys().size();
    // The library's own texts travel inside it, in each of its languages.
    QLocale::setDefault(QLocale(QLocale::French));
    const QString title = Zuvero::localizeString(QStringLiteral("zuveroChatTitle"));
    std::printf("apiKey=%s colour=%s keys=%d title=%s reachable=%d\n", qPrintable(key),
                colour ? qPrintable(colour->name()) : "none", int(keysKnown), qPrintable(title),
                int(reachable));
    return key.isEmpty() || !colour || !keysKnown ? 1 : 0;
}
