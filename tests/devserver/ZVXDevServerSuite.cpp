#include "ZVXDevServerSuite.h"

#include "ZVXReachability.h"
#include "ZuveroCertificateAuthorities.h"

#include <QFile>
#include <QTest>
#include <QUrl>

using namespace Qt::StringLiterals;

const QString ZVXDevServerSuite::SecretHex = u"0a1b2c3d4e5f60718293a4b5c6d7e8f9"_s;

bool ZVXDevServerSuite::start(const QStringList &extraArguments)
{
    if (!m_server.start(QStringList{u"--api-secret"_s, SecretHex, u"--admin"_s} + extraArguments))
        return false;
    QFile authority(m_server.authorityPath());
    if (!authority.open(QIODevice::ReadOnly)
        || ZuveroAddTrustedCertificateAuthorities(authority.readAll()) != 1)
        return false;
    m_admin = std::make_unique<ZVXDevClient>(
        m_server,
        ZVXDevSign({{u"installationId"_s, u"admin"_s}}, QByteArray::fromHex(SecretHex.toLatin1())));
    m_network = std::make_shared<ZVXSettableReachabilitySource>(ZVXReachabilityFlags::Reachable);
    ZVXReachability::setSourceFactory([this](const QHostAddress &) { return m_network; });
    return true;
}

void ZVXDevServerSuite::setOnline(bool online)
{
    m_network->setFlags(online ? quint32(ZVXReachabilityFlags::Reachable) : 0u);
}

bool ZVXDevServerSuite::reset()
{
    setOnline(true);
    for (const QString &path : {u"/admin/faults"_s, u"/admin/counters"_s}) {
        if (ZVXDevClient::wait(m_admin->manager().deleteResource(m_admin->request(path))).status
            != 200)
            return false;
    }
    return true;
}

std::unique_ptr<Zuvero> ZVXDevServerSuite::facade(const QString &user,
                                                  const Zuvero::DelegatePtr &delegate)
{
    std::unique_ptr<Zuvero> zuvero(
        Zuvero::initWithApiSecret(SecretHex, QUrl(m_server.origin()).authority(), delegate));
    // A user of its own each time: a freed facade's address comes back, its user's messages too.
    static int made = 0;
    zuvero->setUserIdentifier(u"%1-%2"_s.arg(user).arg(++made));
    return zuvero;
}

bool ZVXDevServerSuite::registered(Zuvero *zuvero)
{
    bool done = false;
    zuvero->setNeedsRegistration(true);
    zuvero->registerIfNeeded([&done](bool success, const ZuveroError &) { done = success; });
    return QTest::qWaitFor([&done] { return done; }, 10000);
}

qint64 ZVXDevServerSuite::conversationId(Zuvero *zuvero)
{
    return m_admin->conversationId(u"userId"_s, zuvero->userIdentifier().value_or(QString()));
}
