// Uses the installed public headers only.
#include <Zuvero/ZuveroData.h>
#include <Zuvero/ZuveroError.h>
#include <Zuvero/ZuveroNotificationCenter.h>

#include <QCoreApplication>

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
    std::printf("apiKey=%s\n", qPrintable(key));
    return key.isEmpty() ? 1 : 0;
}
