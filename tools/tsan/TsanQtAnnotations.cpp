// Teaches ThreadSanitizer the ordering that Qt's own locks give.
//
// Debian's Qt is not built with ThreadSanitizer, so the acquire and release inside
// QMutex's slow path, QReadWriteLock and QWaitCondition are invisible to it and every
// piece of data guarded by them looks racy. This file, linked only into the test
// programs of the tsan build, interposes those functions: each one calls Qt's own and
// tells the sanitizer about the acquire or release it performed.

#include <QMutex>
#include <QReadWriteLock>
#include <QSemaphore>
#include <QWaitCondition>

#include <dlfcn.h>

extern "C" void __tsan_acquire(void* addr);
extern "C" void __tsan_release(void* addr);

namespace {
template <typename Fn>
Fn real(const char* mangled)
{
    void* sym = dlsym(RTLD_NEXT, mangled);
    if (!sym)
        qFatal("tsan annotations: cannot find %s in Qt", mangled);
    return reinterpret_cast<Fn>(sym);
}
} // namespace

// ---- QMutex (recursive-capable, out of line) ----
void QMutex::lock() noexcept
{
    static auto fn = real<void (*)(QMutex*)>("_ZN6QMutex4lockEv");
    fn(this);
    __tsan_acquire(this);
}

bool QMutex::tryLock(int timeout) noexcept
{
    static auto fn = real<bool (*)(QMutex*, int)>("_ZN6QMutex7tryLockEi");
    const bool ok = fn(this, timeout);
    if (ok)
        __tsan_acquire(this);
    return ok;
}

void QMutex::unlock() noexcept
{
    static auto fn = real<void (*)(QMutex*)>("_ZN6QMutex6unlockEv");
    __tsan_release(this);
    fn(this);
}

// ---- QBasicMutex slow paths (the fast paths are inline atomics the sanitizer sees) ----
void QBasicMutex::lockInternal() noexcept
{
    static auto fn = real<void (*)(QBasicMutex*)>("_ZN11QBasicMutex12lockInternalEv");
    fn(this);
    __tsan_acquire(this);
}

bool QBasicMutex::lockInternal(int timeout) noexcept
{
    static auto fn = real<bool (*)(QBasicMutex*, int)>("_ZN11QBasicMutex12lockInternalEi");
    const bool ok = fn(this, timeout);
    if (ok)
        __tsan_acquire(this);
    return ok;
}

void QBasicMutex::unlockInternal() noexcept
{
    static auto fn = real<void (*)(QBasicMutex*)>("_ZN11QBasicMutex14unlockInternalEv");
    __tsan_release(this);
    fn(this);
}

// ---- QReadWriteLock ----
void QReadWriteLock::lockForRead()
{
    static auto fn = real<void (*)(QReadWriteLock*)>("_ZN14QReadWriteLock11lockForReadEv");
    fn(this);
    __tsan_acquire(this);
}

bool QReadWriteLock::tryLockForRead()
{
    static auto fn = real<bool (*)(QReadWriteLock*)>("_ZN14QReadWriteLock14tryLockForReadEv");
    const bool ok = fn(this);
    if (ok)
        __tsan_acquire(this);
    return ok;
}

bool QReadWriteLock::tryLockForRead(int timeout)
{
    static auto fn = real<bool (*)(QReadWriteLock*, int)>("_ZN14QReadWriteLock14tryLockForReadEi");
    const bool ok = fn(this, timeout);
    if (ok)
        __tsan_acquire(this);
    return ok;
}

void QReadWriteLock::lockForWrite()
{
    static auto fn = real<void (*)(QReadWriteLock*)>("_ZN14QReadWriteLock12lockForWriteEv");
    fn(this);
    __tsan_acquire(this);
}

bool QReadWriteLock::tryLockForWrite()
{
    static auto fn = real<bool (*)(QReadWriteLock*)>("_ZN14QReadWriteLock15tryLockForWriteEv");
    const bool ok = fn(this);
    if (ok)
        __tsan_acquire(this);
    return ok;
}

bool QReadWriteLock::tryLockForWrite(int timeout)
{
    static auto fn = real<bool (*)(QReadWriteLock*, int)>("_ZN14QReadWriteLock15tryLockForWriteEi");
    const bool ok = fn(this, timeout);
    if (ok)
        __tsan_acquire(this);
    return ok;
}

void QReadWriteLock::unlock()
{
    static auto fn = real<void (*)(QReadWriteLock*)>("_ZN14QReadWriteLock6unlockEv");
    __tsan_release(this);
    fn(this);
}

// ---- QWaitCondition: waiting releases and re-takes the lock ----
bool QWaitCondition::wait(QMutex* mutex, QDeadlineTimer deadline)
{
    static auto fn = real<bool (*)(QWaitCondition*, QMutex*, QDeadlineTimer)>(
        "_ZN14QWaitCondition4waitEP6QMutex14QDeadlineTimer");
    __tsan_release(mutex);
    const bool woken = fn(this, mutex, deadline);
    __tsan_acquire(mutex);
    __tsan_acquire(this);
    return woken;
}

bool QWaitCondition::wait(QMutex* mutex, unsigned long time)
{
    static auto fn = real<bool (*)(QWaitCondition*, QMutex*, unsigned long)>("_ZN14QWaitCondition4waitEP6QMutexm");
    __tsan_release(mutex);
    const bool woken = fn(this, mutex, time);
    __tsan_acquire(mutex);
    __tsan_acquire(this);
    return woken;
}

bool QWaitCondition::wait(QReadWriteLock* lock, QDeadlineTimer deadline)
{
    static auto fn = real<bool (*)(QWaitCondition*, QReadWriteLock*, QDeadlineTimer)>(
        "_ZN14QWaitCondition4waitEP14QReadWriteLock14QDeadlineTimer");
    __tsan_release(lock);
    const bool woken = fn(this, lock, deadline);
    __tsan_acquire(lock);
    __tsan_acquire(this);
    return woken;
}

bool QWaitCondition::wait(QReadWriteLock* lock, unsigned long time)
{
    static auto fn = real<bool (*)(QWaitCondition*, QReadWriteLock*, unsigned long)>(
        "_ZN14QWaitCondition4waitEP14QReadWriteLockm");
    __tsan_release(lock);
    const bool woken = fn(this, lock, time);
    __tsan_acquire(lock);
    __tsan_acquire(this);
    return woken;
}

void QWaitCondition::wakeOne()
{
    static auto fn = real<void (*)(QWaitCondition*)>("_ZN14QWaitCondition7wakeOneEv");
    __tsan_release(this);
    fn(this);
}

void QWaitCondition::wakeAll()
{
    static auto fn = real<void (*)(QWaitCondition*)>("_ZN14QWaitCondition7wakeAllEv");
    __tsan_release(this);
    fn(this);
}

// ---- QSemaphore ----
void QSemaphore::acquire(int n)
{
    static auto fn = real<void (*)(QSemaphore*, int)>("_ZN10QSemaphore7acquireEi");
    fn(this, n);
    __tsan_acquire(this);
}

bool QSemaphore::tryAcquire(int n)
{
    static auto fn = real<bool (*)(QSemaphore*, int)>("_ZN10QSemaphore10tryAcquireEi");
    const bool ok = fn(this, n);
    if (ok)
        __tsan_acquire(this);
    return ok;
}

bool QSemaphore::tryAcquire(int n, int timeout)
{
    static auto fn = real<bool (*)(QSemaphore*, int, int)>("_ZN10QSemaphore10tryAcquireEii");
    const bool ok = fn(this, n, timeout);
    if (ok)
        __tsan_acquire(this);
    return ok;
}

void QSemaphore::release(int n)
{
    static auto fn = real<void (*)(QSemaphore*, int)>("_ZN10QSemaphore7releaseEi");
    __tsan_release(this);
    fn(this, n);
}
