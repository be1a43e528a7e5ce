#pragma once

#include "zuvero_export.h"

#include <QSharedDataPointer>
#include <QString>
#include <QVariantMap>

class QDebug;

//! The user-info key of an error's human-readable description.
inline constexpr QLatin1String ZuveroLocalizedDescriptionKey{"NSLocalizedDescription"};

class ZuveroErrorData;

/*!
    An error: a domain, an integer code and a dictionary of further
    information. A default-constructed error is null and means "no error";
    results are reported as (value, error) pairs whose error is null on
    success.
*/
class ZUVERO_EXPORT ZuveroError
{
public:
    ZuveroError();
    ZuveroError(const QString &domain, qint64 code, const QVariantMap &userInfo = {});
    ZuveroError(const ZuveroError &other);
    ZuveroError(ZuveroError &&other) noexcept;
    ZuveroError &operator=(const ZuveroError &other);
    ZuveroError &operator=(ZuveroError &&other) noexcept;
    ~ZuveroError();

    //! An error whose user info holds only its description.
    static ZuveroError withDescription(const QString &domain, qint64 code,
                                       const QString &description);

    bool isNull() const { return !d; }
    explicit operator bool() const { return !isNull(); }

    QString domain() const;
    qint64 code() const;
    QVariantMap userInfo() const;

    /*!
        The description from the user info, or a generic sentence naming the
        domain and code when there is none. Empty for a null error.
    */
    QString localizedDescription() const;

    friend ZUVERO_EXPORT bool operator==(const ZuveroError &a, const ZuveroError &b);
    friend bool operator!=(const ZuveroError &a, const ZuveroError &b) { return !(a == b); }

private:
    QSharedDataPointer<ZuveroErrorData> d;
};

ZUVERO_EXPORT QDebug operator<<(QDebug debug, const ZuveroError &error);
