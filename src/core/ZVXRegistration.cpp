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
        if (completion)
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
    const QPointer<ZVXRegistration> self(this);
    ZVXMainThread::async(
        [self, cycle, completion] {
            // Calls without a completion in one turn of the event loop make one request: the last.
            if (!completion && !self->m_cycle.isCurrent(cycle))
                return;
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
            });
        },
        this);
}
