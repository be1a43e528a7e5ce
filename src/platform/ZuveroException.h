#pragma once

//! \file
//! The exception raised for programming errors.

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
    //! An exception of the kind \a name, explained by \a reason.
    ZuveroException(const QString &name, const QString &reason);

    //! The kind of error, such as "NSInternalInconsistencyException".
    QString name() const { return m_name; }
    //! What went wrong, for the developer who reads it.
    QString reason() const { return m_reason; }

    //! "name: reason", UTF-8 encoded.
    const char *what() const noexcept override;

private:
    QString m_name;
    QString m_reason;
    QByteArray m_what;
};
