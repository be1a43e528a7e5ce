#include "ZVXTestCertificates.h"

#include <QFile>
#include <QProcess>

namespace {
QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
} // namespace

ZVXTestCertificates::ZVXTestCertificates()
{
    QFile extensions(m_directory.filePath(QStringLiteral("server.ext")));
    if (!extensions.open(QIODevice::WriteOnly)) {
        m_error = QStringLiteral("cannot write in a temporary folder");
        return;
    }
    extensions.write("subjectAltName=IP:127.0.0.1,DNS:localhost\n"
                     "basicConstraints=CA:FALSE\n"
                     "extendedKeyUsage=serverAuth\n");
    extensions.close();
    trusted = make(QStringLiteral("trusted"));
    untrusted = make(QStringLiteral("untrusted"));
}

ZVXTestCertificates::Identity ZVXTestCertificates::make(const QString &name)
{
    const QString ca = m_directory.filePath(name + QStringLiteral("-ca"));
    const QString server = m_directory.filePath(name);
    const QStringList newKey{
        QStringLiteral("-newkey"), QStringLiteral("ec"), QStringLiteral("-pkeyopt"),
        QStringLiteral("ec_paramgen_curve:prime256v1"), QStringLiteral("-nodes")};
    const bool made
        = openssl(
              QStringList{QStringLiteral("req"), QStringLiteral("-x509")} + newKey
              + QStringList{QStringLiteral("-keyout"), ca + QStringLiteral(".key"),
                            QStringLiteral("-out"), ca + QStringLiteral(".pem"),
                            QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-subj"),
                            QStringLiteral("/CN=Zuvero test CA ") + name, QStringLiteral("-addext"),
                            QStringLiteral("basicConstraints=critical,CA:TRUE"),
                            QStringLiteral("-addext"),
                            QStringLiteral("keyUsage=critical,keyCertSign")})
        && openssl(QStringList{QStringLiteral("req")} + newKey
                   + QStringList{QStringLiteral("-keyout"), server + QStringLiteral(".key"),
                                 QStringLiteral("-out"), server + QStringLiteral(".csr"),
                                 QStringLiteral("-subj"), QStringLiteral("/CN=localhost")})
        && openssl({QStringLiteral("x509"), QStringLiteral("-req"), QStringLiteral("-in"),
                    server + QStringLiteral(".csr"), QStringLiteral("-CA"),
                    ca + QStringLiteral(".pem"), QStringLiteral("-CAkey"),
                    ca + QStringLiteral(".key"), QStringLiteral("-CAcreateserial"),
                    QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-extfile"),
                    m_directory.filePath(QStringLiteral("server.ext")), QStringLiteral("-out"),
                    server + QStringLiteral(".pem")});
    if (!made)
        return Identity();
    Identity identity;
    identity.authorityPem = readFile(ca + QStringLiteral(".pem"));
    identity.certificate = QSslCertificate(readFile(server + QStringLiteral(".pem")));
    identity.key = QSslKey(readFile(server + QStringLiteral(".key")), QSsl::Ec);
    return identity;
}

bool ZVXTestCertificates::openssl(const QStringList &arguments)
{
    if (!m_error.isEmpty())
        return false;
    QProcess process;
    process.start(QStringLiteral("openssl"), arguments);
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0) {
        m_error = QStringLiteral("openssl %1 failed: %2%3")
                      .arg(arguments.first(), process.errorString(),
                           QString::fromLocal8Bit(process.readAllStandardError()));
        return false;
    }
    return true;
}
