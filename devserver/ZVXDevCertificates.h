#pragma once

#include <QString>

#include <memory>

#include <openssl/ssl.h>

/*!
    The server's TLS identity: a local certificate authority kept in the data
    directory (made on first start, reused afterwards, so a client trusts it
    once) and a server certificate for 127.0.0.1, ::1 and localhost (and the
    bound address) issued by it afresh at every start. The authority may sign
    for those names only (X.509 name constraints): one that could sign for
    more, made by an earlier version or for another bound address, is
    replaced.
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
    //! True when prepare() had to make a new authority, where there was none that worked.
    bool createdAuthority() const { return m_createdAuthority; }
    //! True when prepare() replaced an authority that could sign for other names.
    bool replacedAuthority() const { return m_replacedAuthority; }

    //! Puts the server certificate and key into \a context.
    bool apply(SSL_CTX &context) const;

private:
    struct Keys;
    QString m_directory;
    std::unique_ptr<Keys> m_keys;
    bool m_createdAuthority = false;
    bool m_replacedAuthority = false;
};
