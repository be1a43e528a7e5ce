#include "ZVXLogCapture.h"

#include <atomic>

namespace {
std::atomic<ZVXLogCapture *> activeCapture{nullptr};
std::atomic<QtMessageHandler> previousHandler{nullptr};
} // namespace

ZVXLogCapture::ZVXLogCapture(Categories categories)
    : m_categories(categories)
{
    m_previous = qInstallMessageHandler(&ZVXLogCapture::handler);
    previousHandler = m_previous;
    activeCapture = this;
}

ZVXLogCapture::~ZVXLogCapture()
{
    activeCapture = nullptr;
    qInstallMessageHandler(m_previous);
}

QStringList ZVXLogCapture::lines() const
{
    QMutexLocker locker(&m_mutex);
    return m_lines;
}

void ZVXLogCapture::clear()
{
    QMutexLocker locker(&m_mutex);
    m_lines.clear();
}

void ZVXLogCapture::handler(QtMsgType type, const QMessageLogContext &context,
                            const QString &message)
{
    ZVXLogCapture *capture = activeCapture.load();
    if (capture && capture->m_categories == Categories::All) {
        QMutexLocker locker(&capture->m_mutex);
        capture->m_lines.append(QString::fromLatin1(context.category ? context.category : "default")
                                + QStringLiteral(": ") + message);
        return;
    }
    if (capture && context.category && qstrcmp(context.category, "zuvero") == 0) {
        QMutexLocker locker(&capture->m_mutex);
        capture->m_lines.append(message);
        return;
    }
    if (QtMessageHandler previous = previousHandler.load())
        previous(type, context, message);
}
