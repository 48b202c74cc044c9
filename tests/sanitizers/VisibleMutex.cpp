// Tells ThreadSanitizer what a QMutex orders.
//
// Qt is not built with the sanitizer, and its mutex is made of atomics and a futex: what one thread did before it
// unlocked would not count as done before another thread's lock, and what is well guarded would be reported. Linked into
// every program of such a build, before Qt, this is the QMutex that the programs and Qt's other libraries call.
#include <QMutex>

#include <cstdlib>
#include <dlfcn.h>
#include <sanitizer/tsan_interface.h>

namespace {

template <typename Function>
Function* qtsOwn(const char* symbol) {
    void* found = dlsym(RTLD_NEXT, symbol);
    if (!found)
        std::abort(); // another version of Qt: its names are wanted here
    return reinterpret_cast<Function*>(found);
}

} // namespace

void QMutex::lock() QT_MUTEX_LOCK_NOEXCEPT {
    static const auto lockOfQt = qtsOwn<void(QMutex*)>("_ZN6QMutex4lockEv");
    lockOfQt(this);
    __tsan_acquire(this);
}

bool QMutex::tryLock(int timeout) QT_MUTEX_LOCK_NOEXCEPT {
    static const auto tryLockOfQt = qtsOwn<bool(QMutex*, int)>("_ZN6QMutex7tryLockEi");
    const bool isLocked = tryLockOfQt(this, timeout);
    if (isLocked)
        __tsan_acquire(this);
    return isLocked;
}

void QMutex::unlock() noexcept {
    static const auto unlockOfQt = qtsOwn<void(QMutex*)>("_ZN6QMutex6unlockEv");
    __tsan_release(this);
    unlockOfQt(this);
}
