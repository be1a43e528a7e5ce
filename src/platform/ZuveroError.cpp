#include "ZuveroError.h"

#include <QDebug>

class ZuveroErrorData : public QSharedData
{
public:
    QString domain;
    qint64 code = 0;
    QVariantMap userInfo;
};

ZuveroError::ZuveroError() = default;

ZuveroError::ZuveroError(const QString &domain, qint64 code, const QVariantMap &userInfo)
    : d(new ZuveroErrorData)
{
    d->domain = domain;
    d->code = code;
    d->userInfo = userInfo;
}

ZuveroError::ZuveroError(const ZuveroError &other) = default;
ZuveroError::ZuveroError(ZuveroError &&other) noexcept = default;
ZuveroError &ZuveroError::operator=(const ZuveroError &other) = default;
ZuveroError &ZuveroError::operator=(ZuveroError &&other) noexcept = default;
ZuveroError::~ZuveroError() = default;

ZuveroError ZuveroError::withDescription(const QString &domain, qint64 code,
                                         const QString &description)
{
    return ZuveroError(domain, code, {{ZuveroLocalizedDescriptionKey, description}});
}

QString ZuveroError::domain() const
{
    return d ? d->domain : QString();
}

qint64 ZuveroError::code() const
{
    return d ? d->code : 0;
}

QVariantMap ZuveroError::userInfo() const
{
    return d ? d->userInfo : QVariantMap();
}

QString ZuveroError::localizedDescription() const
{
    if (!d)
        return {};
    const QVariant description = d->userInfo.value(ZuveroLocalizedDescriptionKey);
    if (description.metaType().id() == QMetaType::QString)
        return description.toString();
    return QStringLiteral("The operation couldn’t be completed. (%1 error %2.)")
        .arg(d->domain)
        .arg(d->code);
}

bool operator==(const ZuveroError &a, const ZuveroError &b)
{
    if (a.d == b.d)
        return true;
    if (!a.d || !b.d)
        return false;
    return a.d->domain == b.d->domain && a.d->code == b.d->code && a.d->userInfo == b.d->userInfo;
}

QDebug operator<<(QDebug debug, const ZuveroError &error)
{
    QDebugStateSaver saver(debug);
    if (error.isNull())
        return debug.nospace() << "ZuveroError()";
    return debug.nospace() << "ZuveroError(" << error.domain() << ", " << error.code() << ", "
                           << error.localizedDescription() << ')';
}
