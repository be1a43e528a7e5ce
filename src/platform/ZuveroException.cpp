#include "ZuveroException.h"

ZuveroException::ZuveroException(const QString &name, const QString &reason)
    : m_name(name)
    , m_reason(reason)
    , m_what((name + QLatin1String(": ") + reason).toUtf8())
{ }

const char *ZuveroException::what() const noexcept
{
    return m_what.constData();
}
