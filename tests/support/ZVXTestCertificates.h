#pragma once

#include <QSslCertificate>
#include <QSslKey>
#include <QTemporaryDir>

/*!
    Certificates made for one test run by the openssl command: a test
    authority with a server certificate for 127.0.0.1 and localhost, and a
    second authority, trusted by nobody, with a server certificate for the
    same names. isValid() is false (and errorString() says why) when the
    openssl command failed.
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

private:
    Identity make(const QString &name);
    bool openssl(const QStringList &arguments);

    QTemporaryDir m_directory;
    QString m_error;
};
