#pragma once

#include <QSslCertificate>
#include <QSslKey>
#include <QTemporaryDir>

#include <optional>

/*!
    Certificates made for one test run by the openssl command: a test
    authority with a server certificate for 127.0.0.1 and localhost, and a
    second authority, trusted by nobody, with a server certificate for the
    same names. The test authority also issues, when first asked, a
    certificate for the same names that expired in 2020 and one for another
    host. isValid() is false (and errorString() says why) when the openssl
    command failed.
*/
class ZVXTestCertificates
{
public:
    struct Identity
    {
        QByteArray authorityPem;
        QSslCertificate certificate;
        QSslKey key;
    };

    ZVXTestCertificates();

    bool isValid() const { return m_error.isEmpty(); }
    QString errorString() const { return m_error; }

    Identity trusted;
    Identity untrusted;
    //! By the trusted authority, for 127.0.0.1 and localhost, valid in January 2020 only.
    const Identity &expired();
    //! By the trusted authority, valid now, for zuvero.example and 10.9.8.7 only.
    const Identity &wrongHost();

private:
    Identity make(const QString &name);
    //! A server key and a certificate for it from the authority \a authority.
    Identity issue(const QString &authority, const QString &name, const QString &subjectAltName,
                   bool expired);
    bool openssl(const QStringList &arguments);
    QString path(const QString &name) const { return m_directory.filePath(name); }

    QTemporaryDir m_directory;
    QString m_error;
    std::optional<Identity> m_expired;
    std::optional<Identity> m_wrongHost;
};
