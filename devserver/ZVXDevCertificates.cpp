#include "ZVXDevCertificates.h"

#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QRandomGenerator>

#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace {

struct Free
{
    void operator()(X509 *p) const { X509_free(p); }
    void operator()(EVP_PKEY *p) const { EVP_PKEY_free(p); }
    void operator()(BIO *p) const { BIO_free(p); }
    void operator()(BIGNUM *p) const { BN_free(p); }
};
using Certificate = std::unique_ptr<X509, Free>;
using Key = std::unique_ptr<EVP_PKEY, Free>;
using Bio = std::unique_ptr<BIO, Free>;

constexpr long Day = 24 * 60 * 60;

Bio openFile(const QString &path, const char *mode)
{
    return Bio(BIO_new_file(QFile::encodeName(path).constData(), mode));
}

Certificate readCertificate(const QString &path)
{
    const Bio bio = openFile(path, "r");
    return Certificate(bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr) : nullptr);
}

Key readKey(const QString &path)
{
    const Bio bio = openFile(path, "r");
    return Key(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr) : nullptr);
}

bool writeCertificate(const QString &path, X509 *certificate)
{
    const Bio bio = openFile(path, "w");
    return bio && PEM_write_bio_X509(bio.get(), certificate);
}

// Keys are written readable by their owner only.
bool writeKey(const QString &path, EVP_PKEY *key)
{
    QFile::remove(path);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    file.close();
    const Bio bio = openFile(path, "w");
    return bio && PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr);
}

bool addExtension(X509 *certificate, X509 *issuer, int nid, const QByteArray &value)
{
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION *extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value.constData());
    if (!extension)
        return false;
    const bool added = X509_add_ext(certificate, extension, -1) == 1;
    X509_EXTENSION_free(extension);
    return added;
}

// A certificate for \a key named \a commonName, signed by the issuer (itself when none).
Certificate makeCertificate(EVP_PKEY *key, const QByteArray &commonName, long days, X509 *issuer,
                            EVP_PKEY *issuerKey, const QList<QPair<int, QByteArray>> &extensions)
{
    Certificate certificate(X509_new());
    std::unique_ptr<BIGNUM, Free> serial(BN_new());
    if (!certificate || !serial || !BN_rand(serial.get(), 63, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY)
        || !BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate.get())))
        return nullptr;
    X509_set_version(certificate.get(), 2);
    // An hour of slack for clocks that differ a little.
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), days * Day);
    X509_set_pubkey(certificate.get(), key);
    X509_NAME *name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char *>("Zuvero development"), -1,
                               -1, 0);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char *>(commonName.constData()), -1,
                               -1, 0);
    X509 *signer = issuer ? issuer : certificate.get();
    X509_set_issuer_name(certificate.get(), X509_get_subject_name(signer));
    for (const auto &[nid, value] : extensions) {
        if (!addExtension(certificate.get(), signer, nid, value))
            return nullptr;
    }
    if (!X509_sign(certificate.get(), issuerKey ? issuerKey : key, EVP_sha256()))
        return nullptr;
    return certificate;
}

/*
    What the authority may sign for: this machine's loopback names, and the
    address the server is bound to when it is another. Whoever reads the
    authority's key can then make certificates for nothing else, however
    widely the authority is trusted.
*/
QByteArray nameConstraints(const QString &bindAddress)
{
    QByteArray names = "critical,permitted;DNS:localhost,permitted;IP:127.0.0.1/255.255.255.255,"
                       "permitted;IP:::1/ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff";
    const QHostAddress bound(bindAddress);
    if (!bound.isLoopback() && bound != QHostAddress::AnyIPv4 && bound != QHostAddress::AnyIPv6) {
        names += bound.protocol() == QAbstractSocket::IPv6Protocol
            ? ",permitted;IP:" + bindAddress.toLatin1() + "/ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"
            : ",permitted;IP:" + bindAddress.toLatin1() + "/255.255.255.255";
    }
    return names;
}

// The encoded extension \a value would make, for comparing with one a certificate has.
QByteArray encodedExtension(int nid, const QByteArray &value)
{
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, nullptr, nullptr, nullptr, nullptr, 0);
    X509_EXTENSION *extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value.constData());
    if (!extension)
        return {};
    const ASN1_OCTET_STRING *data = X509_EXTENSION_get_data(extension);
    const QByteArray encoded(reinterpret_cast<const char *>(ASN1_STRING_get0_data(data)),
                             ASN1_STRING_length(data));
    X509_EXTENSION_free(extension);
    return encoded;
}

bool hasExtension(X509 *certificate, int nid, const QByteArray &value)
{
    const int at = X509_get_ext_by_NID(certificate, nid, -1);
    if (at < 0 || X509_get_ext_by_NID(certificate, nid, at) >= 0)
        return false;
    X509_EXTENSION *extension = X509_get_ext(certificate, at);
    const ASN1_OCTET_STRING *data = X509_EXTENSION_get_data(extension);
    const QByteArray found(reinterpret_cast<const char *>(ASN1_STRING_get0_data(data)),
                           ASN1_STRING_length(data));
    return X509_EXTENSION_get_critical(extension) == 1 && found == encodedExtension(nid, value);
}

bool stillValidFor(X509 *certificate, long seconds)
{
    time_t until = time(nullptr) + seconds;
    return X509_cmp_time(X509_get0_notAfter(certificate), &until) > 0;
}

} // namespace

struct ZVXDevCertificates::Keys
{
    Certificate authority;
    Key authorityKey;
    Certificate server;
    Key serverKey;
};

ZVXDevCertificates::ZVXDevCertificates(const QString &directory)
    : m_directory(directory)
    , m_keys(std::make_unique<Keys>())
{ }

ZVXDevCertificates::~ZVXDevCertificates() = default;

QString ZVXDevCertificates::authorityPath() const
{
    return m_directory + QStringLiteral("/ca.pem");
}

QString ZVXDevCertificates::serverCertificatePath() const
{
    return m_directory + QStringLiteral("/server.pem");
}

bool ZVXDevCertificates::prepare(const QString &bindAddress, QString *error)
{
    if (!QDir().mkpath(m_directory)) {
        *error = QStringLiteral("cannot create %1").arg(m_directory);
        return false;
    }
    const QString authorityKeyPath = m_directory + QStringLiteral("/ca-key.pem");
    m_keys->authority = readCertificate(authorityPath());
    m_keys->authorityKey = readKey(authorityKeyPath);
    const QByteArray constraints = nameConstraints(bindAddress);
    const bool usable = m_keys->authority && m_keys->authorityKey
        && X509_check_private_key(m_keys->authority.get(), m_keys->authorityKey.get()) == 1
        && stillValidFor(m_keys->authority.get(), 30 * Day);
    // One made before authorities were constrained, or for another bound address, goes.
    m_replacedAuthority
        = usable && !hasExtension(m_keys->authority.get(), NID_name_constraints, constraints);
    if (!usable || m_replacedAuthority) {
        // A random part in the name keeps authorities of different data directories apart.
        const QByteArray name = "Zuvero Development CA "
            + QByteArray::number(QRandomGenerator::global()->generate(), 16);
        m_keys->authorityKey.reset(EVP_EC_gen("P-256"));
        if (m_keys->authorityKey)
            m_keys->authority
                = makeCertificate(m_keys->authorityKey.get(), name, 3650, nullptr, nullptr,
                                  {{NID_basic_constraints, "critical,CA:TRUE,pathlen:0"},
                                   {NID_key_usage, "critical,keyCertSign,cRLSign"},
                                   {NID_name_constraints, constraints},
                                   {NID_subject_key_identifier, "hash"}});
        if (!m_keys->authority || !writeKey(authorityKeyPath, m_keys->authorityKey.get())
            || !writeCertificate(authorityPath(), m_keys->authority.get())) {
            *error = QStringLiteral("cannot create a certificate authority in %1").arg(m_directory);
            return false;
        }
        m_createdAuthority = !m_replacedAuthority;
    }

    QByteArray names = "DNS:localhost,IP:127.0.0.1,IP:::1";
    const QHostAddress bound(bindAddress);
    if (!bound.isLoopback() && bound != QHostAddress::AnyIPv4 && bound != QHostAddress::AnyIPv6)
        names += ",IP:" + bindAddress.toLatin1();
    m_keys->serverKey.reset(EVP_EC_gen("P-256"));
    if (m_keys->serverKey)
        m_keys->server = makeCertificate(m_keys->serverKey.get(), "localhost", 397,
                                         m_keys->authority.get(), m_keys->authorityKey.get(),
                                         {{NID_basic_constraints, "critical,CA:FALSE"},
                                          {NID_key_usage, "critical,digitalSignature"},
                                          {NID_ext_key_usage, "serverAuth"},
                                          {NID_subject_alt_name, names},
                                          {NID_subject_key_identifier, "hash"},
                                          {NID_authority_key_identifier, "keyid:always"}});
    if (!m_keys->server || !writeCertificate(serverCertificatePath(), m_keys->server.get())) {
        *error = QStringLiteral("cannot issue the server certificate in %1").arg(m_directory);
        return false;
    }
    return true;
}

bool ZVXDevCertificates::apply(SSL_CTX &context) const
{
    // A client asking for handshake after handshake costs the server far more than itself.
    SSL_CTX_set_options(&context, SSL_OP_NO_RENEGOTIATION);
    return SSL_CTX_set_min_proto_version(&context, TLS1_2_VERSION) == 1
        && SSL_CTX_use_certificate(&context, m_keys->server.get()) == 1
        && SSL_CTX_use_PrivateKey(&context, m_keys->serverKey.get()) == 1;
}
