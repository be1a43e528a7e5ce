#include "ZVXLogging.h"

Q_LOGGING_CATEGORY(lcZuvero, "zuvero", QtInfoMsg)

void ZVXLog(const QString &message)
{
    qCInfo(lcZuvero).noquote().nospace() << "ZVX: " << message;
}

void ZVXLogError(const QString &message)
{
    qCWarning(lcZuvero).noquote().nospace() << "ZVX ERROR: " << message;
}

QString ZVXDescribeBytes(const QByteArray &bytes)
{
    QString text;
    text.reserve(2 + bytes.size() * 2 + bytes.size() / 4);
    text += QLatin1Char('<');
    const QByteArray hex = bytes.toHex();
    for (qsizetype i = 0; i < hex.size(); i += 8) {
        if (i)
            text += QLatin1Char(' ');
        text += QLatin1String(hex.mid(i, 8));
    }
    text += QLatin1Char('>');
    return text;
}
