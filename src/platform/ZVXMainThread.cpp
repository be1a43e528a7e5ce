#include "ZVXMainThread.h"

#include "ZuveroException.h"

#include <QCoreApplication>
#include <QEvent>
#include <QPointer>
#include <QThread>

#include <deque>
#include <mutex>

namespace {

/*
    Steps travel to the main thread through a queue of our own, guarded by a
    std::mutex; the posted event that makes the main thread take the next one
    carries nothing. Qt is not built with ThreadSanitizer, so a step handed
    over inside Qt's event queue would look to it like unsynchronised memory.
    One event per step keeps the order among other posted events.
*/
class Dispatcher final : public QObject
{
public:
    void post(std::function<void()> step)
    {
        {
            std::lock_guard locker(m_mutex);
            m_steps.push_back(std::move(step));
        }
        QCoreApplication::postEvent(this, new QEvent(QEvent::User));
    }

protected:
    void customEvent(QEvent *) override
    {
        std::function<void()> step;
        {
            std::lock_guard locker(m_mutex);
            if (m_steps.empty())
                return;
            step = std::move(m_steps.front());
            m_steps.pop_front();
        }
        step();
    }

private:
    std::mutex m_mutex;
    std::deque<std::function<void()>> m_steps;
};

Dispatcher *dispatcher(QCoreApplication *app)
{
    // Created by whichever thread comes first, kept for the life of the process.
    static Dispatcher *instance = [app] {
        auto *created = new Dispatcher;
        created->moveToThread(app->thread());
        return created;
    }();
    return instance;
}

} // namespace

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
        dispatcher(app)->post(std::move(step));
        return;
    }
    dispatcher(app)->post([guard = QPointer<const QObject>(context), step = std::move(step)] {
        if (guard)
            step();
    });
}

} // namespace ZVXMainThread
