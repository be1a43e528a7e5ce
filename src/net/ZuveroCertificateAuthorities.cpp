#include "ZuveroCertificateAuthorities_p.h"

#include "ZVXLogging.h"

#include <QMutex>
#include <QSslCertificate>

#include <optional>

namespace {

struct TrustStore
{
    QMutex mutex;
    QList<QSslCertificate> added;
    quint64 generation = 0;
    // Built on first use per generation: reading the system's authorities takes a while.
    std::optional<QSslConfiguration> configuration;
};

TrustStore &store()
{
    static TrustStore instance;
    return instance;
}

} // namespace

int ZuveroAddTrustedCertificateAuthorities(const QByteArray &pem)
{
    const QList<QSslCertificate> certificates = QSslCertificate::fromData(pem, QSsl::Pem);
    if (certificates.isEmpty()) {
        ZVXLogError(QStringLiteral("ZuveroAddTrustedCertificateAuthorities: no PEM certificate in "
                                   "the %1 bytes given; nothing added.")
                        .arg(pem.size()));
        return 0;
    }
    TrustStore &s = store();
    QMutexLocker locker(&s.mutex);
    s.added += certificates;
    ++s.generation;
    s.configuration.reset();
    return int(certificates.size());
}

void ZuveroRemoveTrustedCertificateAuthorities()
{
    TrustStore &s = store();
    QMutexLocker locker(&s.mutex);
    if (s.added.isEmpty())
        return;
    s.added.clear();
    ++s.generation;
    s.configuration.reset();
}

namespace ZVXTrustStore {

quint64 generation()
{
    TrustStore &s = store();
    QMutexLocker locker(&s.mutex);
    return s.generation;
}

QSslConfiguration configuration(quint64 *generation)
{
    TrustStore &s = store();
    QMutexLocker locker(&s.mutex);
    if (generation)
        *generation = s.generation;
    if (!s.configuration) {
        QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
        // Setting authorities explicitly ends Qt's on-demand loading of the system's.
        if (!s.added.isEmpty())
            configuration.setCaCertificates(QSslConfiguration::systemCaCertificates() + s.added);
        s.configuration = configuration;
    }
    return *s.configuration;
}

} // namespace ZVXTrustStore
