#pragma once

//! \file
//! Errors: the value type, and every error domain of the library with its codes.

#include "zuvero_export.h"

#include <QSharedDataPointer>
#include <QString>
#include <QVariantMap>

class QDebug;

//! The user-info key of an error's human-readable description.
inline constexpr QLatin1String ZuveroLocalizedDescriptionKey{"NSLocalizedDescription"};
//! The user-info key of the HTTP status of the reply an error came from, where one came.
inline constexpr QLatin1String ZuveroHTTPStatusCodeKey{"httpStatusCode"};

// Every error domain of the library, with the codes it gives a meaning to.

//! The facade and the server connection. A server's refusal carries its HTTP status as the code.
inline constexpr QLatin1String ZuveroErrorDomain{"com.zuvero.errors"};
//! Codes of ZuveroErrorDomain.
enum ZuveroErrorCode : qint64 {
    //! No HTTP reply came (or the facade that made the request is gone).
    ZuveroErrorNoHTTPResponse = 1,
    //! An attachment whose contents cannot be opened.
    ZuveroErrorAttachmentCannotBeOpened = 2,
    //! Registration needs a token, and there is none.
    ZuveroErrorNoToken = 3,
    //! Codes from this one up are HTTP statuses of a server's refusal.
    ZuveroErrorFirstServerRefusal = 400,
};

//! The unread-count fetch: the HTTP status of a reply outside 200-299, with no further information.
inline constexpr QLatin1String ZuveroHTTPErrorDomain{"com.zuvero.http.error"};

/*!
    Transport failures. The code is a QNetworkReply::NetworkError
    (SslHandshakeFailedError for a certificate that fails verification,
    TimeoutError, OperationCanceledError, ProtocolFailure for a body that
    cannot be decoded...), or one of the codes below.
*/
inline constexpr QLatin1String ZuveroURLErrorDomain{"com.zuvero.url"};
//! Codes of ZuveroURLErrorDomain beside the QNetworkReply ones.
enum ZuveroURLErrorCode : qint64 {
    //! A reply without HTTP, or without a value the call cannot do without.
    ZuveroURLErrorBadServerResponse = -1011,
    //! A reply whose body (or, encoded, the body it decodes to) is larger than the session takes.
    ZuveroURLErrorReplyTooLarge = -1103,
    //! A reply whose head (status line and header fields) does not end within the session's limit.
    ZuveroURLErrorHeadersTooLong = -1104,
};

//! JSON text that does not parse, or a value JSON cannot hold.
inline constexpr QLatin1String ZuveroJSONErrorDomain{"com.zuvero.json"};
//! Codes of ZuveroJSONErrorDomain.
enum ZuveroJSONErrorCode : qint64 {
    ZuveroJSONErrorInvalidValue = 1, //!< a value JSON cannot represent
    ZuveroJSONErrorParse = 2, //!< text that is not a JSON object or array
};

//! An XML property list that does not parse.
inline constexpr QLatin1String ZuveroPropertyListErrorDomain{"com.zuvero.plist"};
//! Codes of ZuveroPropertyListErrorDomain.
enum ZuveroPropertyListErrorCode : qint64 {
    ZuveroPropertyListErrorParse = 1, //!< not a well-formed property list
};

//! A configuration file that cannot be read or holds no dictionary.
inline constexpr QLatin1String ZuveroConfigurationErrorDomain{"com.zuvero.configuration"};
//! Codes of ZuveroConfigurationErrorDomain.
enum ZuveroConfigurationErrorCode : qint64 {
    ZuveroConfigurationErrorUnreadable = 1, //!< missing, unreadable, or not a dictionary
};

/*!
    The map picture of a shared location. A tile that did not arrive at all
    fails with the transport's own error (ZuveroURLErrorDomain).
*/
inline constexpr QLatin1String ZuveroMapErrorDomain{"com.zuvero.map"};
//! Codes of ZuveroMapErrorDomain.
enum ZuveroMapErrorCode : qint64 {
    //! A tile URL template that is not http or https, or lacks one of {z}, {x} and {y}.
    ZuveroMapErrorInvalidURLTemplate = 1,
    //! A centre, span, size or pixel ratio no picture can be made of.
    ZuveroMapErrorInvalidOptions = 2,
    //! A tile server's answer other than 200; the status is under ZuveroHTTPStatusCodeKey.
    ZuveroMapErrorTileRefused = 3,
    //! A tile that is not a PNG, JPEG or WebP image, or is larger than a tile may be.
    ZuveroMapErrorTileNotAnImage = 4,
};

/*!
    Address search and reverse geocoding. A geocoder that could not be
    reached fails with the transport's own error (ZuveroURLErrorDomain).
*/
inline constexpr QLatin1String ZuveroGeocoderErrorDomain{"com.zuvero.geocoder"};
//! The codes of ZuveroGeocoderErrorDomain.
enum ZuveroGeocoderErrorCode : qint64 {
    //! A geocoder address that is not http or https.
    ZuveroGeocoderErrorInvalidURL = 1,
    //! A geocoder's answer other than 200 (or 404 to a reverse question); the status is under
    //! ZuveroHTTPStatusCodeKey.
    ZuveroGeocoderErrorRefused = 2,
    //! An answer that is not the JSON of places expected.
    ZuveroGeocoderErrorBadReply = 3,
};

//! An operation that failed without saying why.
inline constexpr QLatin1String ZVXConcurrentOperationErrorDomain{
    "ZVXConcurrentOperationErrorDomain"};
//! Codes of ZVXConcurrentOperationErrorDomain.
enum ZVXConcurrentOperationErrorCode : qint64 {
    ZVXConcurrentOperationErrorUnknown = 0, //!< "Unknown error"
};

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
    //! A null error: success.
    ZuveroError();
    //! An error of \a domain with \a code and the further information \a userInfo.
    ZuveroError(const QString &domain, qint64 code, const QVariantMap &userInfo = {});
    //! A copy of \a other; errors share their data until one of them changes.
    ZuveroError(const ZuveroError &other);
    //! Takes \a other's data, leaving \a other null.
    ZuveroError(ZuveroError &&other) noexcept;
    //! Makes this error a copy of \a other.
    ZuveroError &operator=(const ZuveroError &other);
    //! Takes \a other's data.
    ZuveroError &operator=(ZuveroError &&other) noexcept;
    ~ZuveroError();

    //! An error whose user info holds only its description.
    static ZuveroError withDescription(const QString &domain, qint64 code,
                                       const QString &description);

    //! True for "no error".
    bool isNull() const { return !d; }
    //! True for an actual error, so that `if (error)` reads as it should.
    explicit operator bool() const { return !isNull(); }

    //! Which part of the library (or of the system) gives the code its meaning.
    QString domain() const;
    //! The error within its domain; 0 for a null error.
    qint64 code() const;
    //! Further information, such as ZuveroLocalizedDescriptionKey; empty for a null error.
    QVariantMap userInfo() const;

    /*!
        The description from the user info, or a generic sentence naming the
        domain and code when there is none. Empty for a null error.
    */
    QString localizedDescription() const;

    //! Errors are equal when domain, code and user info are; all null errors are equal.
    friend ZUVERO_EXPORT bool operator==(const ZuveroError &a, const ZuveroError &b);
    //! The opposite of operator==().
    friend bool operator!=(const ZuveroError &a, const ZuveroError &b) { return !(a == b); }

private:
    QSharedDataPointer<ZuveroErrorData> d;
};

//! Writes \a error's domain, code and user info to \a debug.
ZUVERO_EXPORT QDebug operator<<(QDebug debug, const ZuveroError &error);
