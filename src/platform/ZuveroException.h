#pragma once

#include "zuvero_export.h"

#include <QString>

#include <exception>

/*!
    An exception raised for a programming error in the host or the library:
    a call off the main thread, a facade used without credentials, the misuse
    of an operation. It carries a name, which identifies the kind of error,
    and a reason, which explains it. Bad input from a server, a cache or a
    push payload never raises.
*/
class ZUVERO_EXPORT ZuveroException : public std::exception
{
public:
    ZuveroException(const QString &name, const QString &reason);

    QString name() const { return m_name; }
    QString reason() const { return m_reason; }

    //! "name: reason", UTF-8 encoded.
    const char *what() const noexcept override;

private:
    QString m_name;
    QString m_reason;
    QByteArray m_what;
};
