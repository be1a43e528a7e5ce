#include "ZVXOperation.h"

#include "ZVXConcurrentOperation.h"
#include "ZuveroException.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>

QLatin1String ZVXOperationKeyName(ZVXOperationKey key)
{
    switch (key) {
    case ZVXOperationKey::IsReady:
        return QLatin1String("isReady");
    case ZVXOperationKey::IsExecuting:
        return QLatin1String("isExecuting");
    case ZVXOperationKey::IsFinished:
        return QLatin1String("isFinished");
    case ZVXOperationKey::IsCancelled:
        return QLatin1String("isCancelled");
    case ZVXOperationKey::IsScheduledForFinish:
        return QLatin1String("isScheduledForFinish");
    case ZVXOperationKey::IsScheduledForError:
        return QLatin1String("isScheduledForError");
    case ZVXOperationKey::IsScheduledForCancellation:
        return QLatin1String("isScheduledForCancellation");
    }
    return {};
}

ZVXOperationObserver::~ZVXOperationObserver() = default;

void ZVXOperationObserver::operationWillChangeValue(ZVXOperation &, ZVXOperationKey) { }

// A dependant's readiness changes with the end of each of its dependencies.
class ZVXOperation::DependencyObserver final : public ZVXOperationObserver
{
public:
    explicit DependencyObserver(std::weak_ptr<ZVXOperation> dependant)
        : m_dependant(std::move(dependant))
    { }

    void operationWillChangeValue(ZVXOperation &, ZVXOperationKey) override
    {
        if (const auto dependant = m_dependant.lock())
            dependant->willChangeValueForKey(ZVXOperationKey::IsReady);
    }
    void operationDidChangeValue(ZVXOperation &, ZVXOperationKey) override
    {
        if (const auto dependant = m_dependant.lock())
            dependant->didChangeValueForKey(ZVXOperationKey::IsReady);
    }

private:
    std::weak_ptr<ZVXOperation> m_dependant;
};

ZVXOperation::ZVXOperation(std::function<void()> work)
    : m_work(std::move(work))
{ }

ZVXOperation::~ZVXOperation() = default;

std::shared_ptr<ZVXOperation> ZVXOperation::operationWithBlock(std::function<void()> work)
{
    return std::make_shared<ZVXOperation>(std::move(work));
}

std::recursive_mutex &ZVXOperation::propagationRecursiveLock()
{
    static std::recursive_mutex lock;
    return lock;
}

void ZVXOperation::start()
{
    // Whoever drops the last reference while the operation ends, it outlives this call.
    const auto self = weak_from_this().lock();
    std::unique_lock locker(propagationRecursiveLock());
    if (!startLocked())
        return;
    locker.unlock();
    startedWork();
}

bool ZVXOperation::startLocked()
{
    if (!mayStart(QLatin1String("ZVXOperation")))
        return false;
    if (isCancelled()) {
        willChangeValueForKey(ZVXOperationKey::IsFinished);
        setFinished(true);
        didChangeValueForKey(ZVXOperationKey::IsFinished);
        return false;
    }
    willChangeValueForKey(ZVXOperationKey::IsExecuting);
    setExecuting(true);
    didChangeValueForKey(ZVXOperationKey::IsExecuting);
    return true;
}

void ZVXOperation::startedWork()
{
    main();
    std::lock_guard locker(propagationRecursiveLock());
    willChangeValueForKey(ZVXOperationKey::IsExecuting);
    willChangeValueForKey(ZVXOperationKey::IsFinished);
    setExecuting(false);
    setFinished(true);
    didChangeValueForKey(ZVXOperationKey::IsExecuting);
    didChangeValueForKey(ZVXOperationKey::IsFinished);
}

void ZVXOperation::main()
{
    if (m_work)
        m_work();
}

void ZVXOperation::cancel()
{
    std::lock_guard locker(propagationRecursiveLock());
    if (isCancelled() || isFinished())
        return;
    // A cancelled operation is ready, so that a queue starts it and lets it end.
    const bool becomesReady = !isExecuting();
    willChangeValueForKey(ZVXOperationKey::IsCancelled);
    if (becomesReady)
        willChangeValueForKey(ZVXOperationKey::IsReady);
    setCancelled(true);
    didChangeValueForKey(ZVXOperationKey::IsCancelled);
    if (becomesReady)
        didChangeValueForKey(ZVXOperationKey::IsReady);
}

bool ZVXOperation::isReady() const
{
    std::lock_guard locker(propagationRecursiveLock());
    if (isCancelled())
        return true;
    return std::all_of(m_dependencies.cbegin(), m_dependencies.cend(),
                       [](const auto &dependency) { return dependency->isFinished(); });
}

void ZVXOperation::addDependency(const std::shared_ptr<ZVXOperation> &operation)
{
    if (!operation)
        return;
    std::lock_guard locker(propagationRecursiveLock());
    if (m_dependencies.contains(operation))
        return;
    if (!m_dependencyObserver)
        m_dependencyObserver = std::make_shared<DependencyObserver>(weak_from_this());
    willChangeValueForKey(ZVXOperationKey::IsReady);
    m_dependencies.append(operation);
    operation->addObserver(m_dependencyObserver, ZVXOperationKey::IsFinished);
    didChangeValueForKey(ZVXOperationKey::IsReady);
}

void ZVXOperation::removeDependency(const std::shared_ptr<ZVXOperation> &operation)
{
    std::lock_guard locker(propagationRecursiveLock());
    if (!operation || !m_dependencies.contains(operation))
        return;
    willChangeValueForKey(ZVXOperationKey::IsReady);
    m_dependencies.removeAll(operation);
    operation->removeObserver(m_dependencyObserver.get(), ZVXOperationKey::IsFinished);
    didChangeValueForKey(ZVXOperationKey::IsReady);
}

QList<std::shared_ptr<ZVXOperation>> ZVXOperation::dependencies() const
{
    std::lock_guard locker(propagationRecursiveLock());
    return m_dependencies;
}

bool ZVXOperation::allDependenciesDidSucceed(ZuveroError *error) const
{
    for (const auto &dependency : dependencies()) {
        const auto *concurrent = dynamic_cast<const ZVXConcurrentOperation *>(dependency.get());
        if (!concurrent)
            continue;
        const ZuveroError dependencyError = concurrent->error();
        if (dependencyError.isNull())
            continue;
        if (error)
            *error = dependencyError;
        return false;
    }
    return true;
}

void ZVXOperation::addObserver(const std::shared_ptr<ZVXOperationObserver> &observer,
                               ZVXOperationKeys keys)
{
    if (!observer)
        return;
    std::lock_guard locker(propagationRecursiveLock());
    std::erase_if(m_observers, [](const ObserverEntry &entry) { return entry.observer.expired(); });
    m_observers.push_back({observer, observer.get(), keys});
}

void ZVXOperation::removeObserver(const ZVXOperationObserver *observer, ZVXOperationKeys keys)
{
    std::lock_guard locker(propagationRecursiveLock());
    for (ObserverEntry &entry : m_observers) {
        if (entry.identity == observer)
            entry.keys &= ~keys;
    }
    std::erase_if(m_observers, [](const ObserverEntry &entry) {
        return !entry.keys || entry.observer.expired();
    });
}

void ZVXOperation::willChangeValueForKey(ZVXOperationKey key)
{
    notifyObservers(key, false);
}

void ZVXOperation::didChangeValueForKey(ZVXOperationKey key)
{
    notifyObservers(key, true);
}

void ZVXOperation::notifyObservers(ZVXOperationKey key, bool didChange)
{
    std::lock_guard locker(propagationRecursiveLock());
    // Observers may add and remove observers, this one included, while they are told.
    std::vector<std::shared_ptr<ZVXOperationObserver>> observers;
    for (const ObserverEntry &entry : m_observers) {
        if (!entry.keys.testFlag(key))
            continue;
        if (auto observer = entry.observer.lock())
            observers.push_back(std::move(observer));
    }
    for (const auto &observer : observers) {
        if (didChange)
            observer->operationDidChangeValue(*this, key);
        else
            observer->operationWillChangeValue(*this, key);
    }
}

QString ZVXOperation::description() const
{
    const char *mangled = typeid(*this).name();
    int status = 0;
    char *demangled = abi::__cxa_demangle(mangled, nullptr, nullptr, &status);
    const QString className = QString::fromLatin1(status == 0 ? demangled : mangled);
    std::free(demangled);
    return QStringLiteral("<%1: 0x%2>").arg(className).arg(quintptr(this), 0, 16);
}

bool ZVXOperation::mayStart(QLatin1String className) const
{
    if (isFinished())
        return false;
    const auto raise = [&](const char *reason) {
        throw ZuveroException(
            ZVXInvalidArgumentException,
            QStringLiteral("%1 %2: %3").arg(className, QLatin1String(reason), description()));
    };
    if (!isReady())
        raise("is not ready");
    if (isExecuting())
        raise("is already executing");
    return true;
}
