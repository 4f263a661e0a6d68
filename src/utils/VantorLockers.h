#pragma once

#include <QMutex>
#include <QReadWriteLock>

#if defined(__SANITIZE_THREAD__)
#define VANTOR_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VANTOR_TSAN 1
#endif
#endif

#ifdef VANTOR_TSAN
#include <sanitizer/tsan_interface.h>
#endif

// Scoped lockers for QMutex and QReadWriteLock that also show the lock to
// ThreadSanitizer. Qt's own lock code is not instrumented: without these, a contended
// lock hides the ordering it gives and the checker reports races that cannot happen.
// In ordinary builds they are the plain Qt lockers.
namespace VantorLockers {

inline void acquired(const void* lock)
{
#ifdef VANTOR_TSAN
    __tsan_acquire(const_cast<void*>(lock));
#else
    Q_UNUSED(lock)
#endif
}

inline void releasing(const void* lock)
{
#ifdef VANTOR_TSAN
    __tsan_release(const_cast<void*>(lock));
#else
    Q_UNUSED(lock)
#endif
}

class MutexLocker
{
public:
    explicit MutexLocker(QMutex* mutex) : m_mutex(mutex) { relock(); }
    ~MutexLocker() { unlock(); }
    void unlock()
    {
        if (!m_locked)
            return;
        releasing(m_mutex);
        m_mutex->unlock();
        m_locked = false;
    }
    void relock()
    {
        m_mutex->lock();
        acquired(m_mutex);
        m_locked = true;
    }
    MutexLocker(const MutexLocker&) = delete;
    MutexLocker& operator=(const MutexLocker&) = delete;

private:
    QMutex* m_mutex;
    bool m_locked = false;
};

class ReadLocker
{
public:
    explicit ReadLocker(QReadWriteLock* lock) : m_lock(lock)
    {
        m_lock->lockForRead();
        acquired(m_lock);
    }
    ~ReadLocker()
    {
        releasing(m_lock);
        m_lock->unlock();
    }
    ReadLocker(const ReadLocker&) = delete;
    ReadLocker& operator=(const ReadLocker&) = delete;

private:
    QReadWriteLock* m_lock;
};

class WriteLocker
{
public:
    explicit WriteLocker(QReadWriteLock* lock) : m_lock(lock) { relock(); }
    ~WriteLocker() { unlock(); }
    void unlock()
    {
        if (!m_locked)
            return;
        releasing(m_lock);
        m_lock->unlock();
        m_locked = false;
    }
    void relock()
    {
        m_lock->lockForWrite();
        acquired(m_lock);
        m_locked = true;
    }
    WriteLocker(const WriteLocker&) = delete;
    WriteLocker& operator=(const WriteLocker&) = delete;

private:
    QReadWriteLock* m_lock;
    bool m_locked = false;
};

} // namespace VantorLockers
