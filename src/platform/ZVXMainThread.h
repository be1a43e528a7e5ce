#pragma once

#include "zuvero_export.h"

#include <QObject>

#include <functional>

/*
    The library keeps its state on the main thread: the thread of the
    QCoreApplication. These helpers check for it and move work onto it.
    Without an application object there is no main thread.
*/
namespace ZVXMainThread {

inline constexpr QLatin1String ExceptionName{"Must run on main thread"};
inline constexpr QLatin1String ExceptionReason{
    "This piece of code was executed on a background thread. Please check if you have "
    "dispatch_async to main thread where needed. Note that NSURLSession calls delegate methods "
    "and blocks on a private queue."};

ZUVERO_EXPORT bool isMainThread();

//! Raises the ZuveroException "Must run on main thread" unless called on the main thread.
ZUVERO_EXPORT void assertMainThread();

/*!
    Runs \a step on the main thread in a later turn of its event loop, also
    when called there. With a \a context, the step is dropped if the context
    is destroyed first. Callable from any thread.
*/
ZUVERO_EXPORT void async(std::function<void()> step, const QObject *context = nullptr);

} // namespace ZVXMainThread
