#pragma once

#include <QString>

#include <memory>

#include <openssl/ssl.h>

/*!
    The server's TLS identity: a local certificate authority kept in the data
    directory (made on first start, reused afterwards, so a client trusts it
    once) and a server certificate for 127.0.0.1, ::1 and localhost (and the
    bound address) issued by it afresh at every start.
*/
class ZVXDevCertificates
{
public:
    explicit ZVXDevCertificates(const QString &directory);
    ~ZVXDevCertificates();

    //! Loads or creates the authority and issues the server certificate; false with \a error.
    bool prepare(const QString &bindAddress, QString *error);

    //! The authority's certificate (PEM), for clients to trust.
    QString authorityPath() const;
    QString serverCertificatePath() const;
    //! True when prepare() had to make a new authority.
    bool createdAuthority() const { return m_createdAuthority; }

    //! Puts the server certificate and key into \a context.
    bool apply(SSL_CTX &context) const;

private:
    struct Keys;
    QString m_directory;
    std::unique_ptr<Keys> m_keys;
    bool m_createdAuthority = false;
};
