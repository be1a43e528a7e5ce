#include "ZVXTestCertificates.h"

#include <QFile>
#include <QProcess>

using namespace Qt::StringLiterals;

namespace {

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

const QStringList NewKey{u"-newkey"_s, u"ec"_s, u"-pkeyopt"_s, u"ec_paramgen_curve:prime256v1"_s,
                         u"-nodes"_s};
const QString OurNames = u"IP:127.0.0.1,DNS:localhost"_s;

} // namespace

ZVXTestCertificates::ZVXTestCertificates()
{
    trusted = make(u"trusted"_s);
    untrusted = make(u"untrusted"_s);
}

const ZVXTestCertificates::Identity &ZVXTestCertificates::expired()
{
    if (!m_expired)
        m_expired = issue(u"trusted-ca"_s, u"expired"_s, OurNames, true);
    return *m_expired;
}

const ZVXTestCertificates::Identity &ZVXTestCertificates::wrongHost()
{
    if (!m_wrongHost)
        m_wrongHost
            = issue(u"trusted-ca"_s, u"wrong-host"_s, u"IP:10.9.8.7,DNS:zuvero.example"_s, false);
    return *m_wrongHost;
}

ZVXTestCertificates::Identity ZVXTestCertificates::make(const QString &name)
{
    const QString ca = path(name + u"-ca"_s);
    const bool made
        = openssl(QStringList{u"req"_s, u"-x509"_s} + NewKey
                  + QStringList{u"-keyout"_s, ca + u".key"_s, u"-out"_s, ca + u".pem"_s, u"-days"_s,
                                u"2"_s, u"-subj"_s, u"/CN=Zuvero test CA "_s + name, u"-addext"_s,
                                u"basicConstraints=critical,CA:TRUE"_s, u"-addext"_s,
                                u"keyUsage=critical,keyCertSign"_s});
    if (!made)
        return Identity();
    return issue(name + u"-ca"_s, name, OurNames, false);
}

ZVXTestCertificates::Identity ZVXTestCertificates::issue(const QString &authority,
                                                         const QString &name,
                                                         const QString &subjectAltName,
                                                         bool expired)
{
    const QString ca = path(authority);
    const QString server = path(name);
    if (!writeFile(server + u".ext"_s,
                   "subjectAltName=" + subjectAltName.toLatin1()
                       + "\nbasicConstraints=CA:FALSE\nextendedKeyUsage=serverAuth\n")) {
        m_error = u"cannot write in a temporary folder"_s;
        return Identity();
    }
    const QString commonName = subjectAltName.section(u"DNS:"_s, 1).section(u',', 0, 0);
    bool made = openssl(QStringList{u"req"_s} + NewKey
                        + QStringList{u"-keyout"_s, server + u".key"_s, u"-out"_s,
                                      server + u".csr"_s, u"-subj"_s, u"/CN="_s + commonName});
    if (expired) {
        // Only "openssl ca" sets dates in the past; it keeps its records in files of its own.
        made = made && writeFile(path(u"index.txt"_s), {})
            && writeFile(path(u"ca.cnf"_s),
                         "[ca]\ndefault_ca = test\n[test]\ndatabase = index.txt\n"
                         "new_certs_dir = .\nrand_serial = yes\ndefault_md = sha256\n"
                         "policy = any\n[any]\ncommonName = supplied\n")
            && openssl({u"ca"_s, u"-batch"_s, u"-config"_s, path(u"ca.cnf"_s), u"-cert"_s,
                        ca + u".pem"_s, u"-keyfile"_s, ca + u".key"_s, u"-in"_s, server + u".csr"_s,
                        u"-startdate"_s, u"20200101000000Z"_s, u"-enddate"_s, u"20200201000000Z"_s,
                        u"-extfile"_s, server + u".ext"_s, u"-notext"_s, u"-out"_s,
                        server + u".pem"_s});
    } else {
        made = made
            && openssl({u"x509"_s, u"-req"_s, u"-in"_s, server + u".csr"_s, u"-CA"_s,
                        ca + u".pem"_s, u"-CAkey"_s, ca + u".key"_s, u"-CAcreateserial"_s,
                        u"-days"_s, u"2"_s, u"-extfile"_s, server + u".ext"_s, u"-out"_s,
                        server + u".pem"_s});
    }
    if (!made)
        return Identity();
    Identity identity;
    identity.authorityPem = readFile(ca + u".pem"_s);
    identity.certificate = QSslCertificate(readFile(server + u".pem"_s));
    identity.key = QSslKey(readFile(server + u".key"_s), QSsl::Ec);
    return identity;
}

bool ZVXTestCertificates::openssl(const QStringList &arguments)
{
    if (!m_error.isEmpty())
        return false;
    QProcess process;
    // "openssl ca" writes its records beside its configuration, in the current folder.
    process.setWorkingDirectory(m_directory.path());
    process.start(u"openssl"_s, arguments);
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0) {
        m_error = u"openssl %1 failed: %2%3"_s.arg(
            arguments.first(), process.errorString(),
            QString::fromLocal8Bit(process.readAllStandardError()));
        return false;
    }
    return true;
}
