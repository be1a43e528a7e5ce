#include "ZVXMainThread.h"

#include "ZuveroException.h"

#include <QCoreApplication>
#include <QPointer>
#include <QThread>

namespace ZVXMainThread {

bool isMainThread()
{
    const QCoreApplication *app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

void assertMainThread()
{
    if (!isMainThread())
        throw ZuveroException(ExceptionName, ExceptionReason);
}

void async(std::function<void()> step, const QObject *context)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app)
        return;
    if (!context) {
        QMetaObject::invokeMethod(app, std::move(step), Qt::QueuedConnection);
        return;
    }
    QMetaObject::invokeMethod(
        app,
        [guard = QPointer<const QObject>(context), step = std::move(step)] {
            if (guard)
                step();
        },
        Qt::QueuedConnection);
}

} // namespace ZVXMainThread
