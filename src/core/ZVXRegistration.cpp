#include "ZVXRegistration.h"

#include "ZVXLocalization.h"
#include "ZVXLogging.h"
#include "ZVXMainThread.h"

#include <QPointer>

ZVXRegistration::ZVXRegistration(ZVXRegistrationAPI *facade)
    : m_facade(facade)
{ }

void ZVXRegistration::registerIfNeeded(const ZuveroConnection::Completion &completion)
{
    ZVXMainThread::assertMainThread();
    if (!m_facade->needsRegistration()) {
        if (completion && m_underWay > 0)
            m_waiting.append(completion);
        else if (completion)
            completion(true, {});
        return;
    }
    if (!m_facade->hasToken()) {
        if (completion)
            completion(false,
                       ZuveroError::withDescription(QString(ZuveroErrorDomain), ZuveroErrorNoToken,
                                                    ZVXLocalization::hostString(QStringLiteral(
                                                        "JWT token is not provided."))));
        return;
    }
    m_facade->setNeedsRegistration(false);
    const quint32 cycle = m_cycle.advance();
    ++m_underWay;
    const QPointer<ZVXRegistration> self(this);
    ZVXMainThread::async(
        [self, cycle, completion] {
            // Calls without a completion in one turn of the event loop make one request: the last.
            if (!completion && !self->m_cycle.isCurrent(cycle))
                return self->registrationEnded();
            self->m_facade->registerApp([self, completion](bool success, const ZuveroError &error) {
                ZVXMainThread::assertMainThread();
                if (self) {
                    if (success) {
                        self->m_facade->didRegister();
                    } else {
                        ZVXLog(QStringLiteral("Failed to register app: %1")
                                   .arg(error.localizedDescription()));
                        self->m_facade->setNeedsRegistration(true);
                    }
                }
                if (completion)
                    completion(success, error);
                if (self)
                    self->registrationEnded();
            });
        },
        this);
}

void ZVXRegistration::registrationEnded()
{
    if (--m_underWay > 0 || m_waiting.isEmpty())
        return;
    // Asked again, in order: after a failure the first registers anew and the others wait for it.
    const QList<ZuveroConnection::Completion> waiting = std::exchange(m_waiting, {});
    for (const ZuveroConnection::Completion &completion : waiting)
        registerIfNeeded(completion);
}
