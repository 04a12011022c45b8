#pragma once

#include <mutex>

#include <pthread.h>

// Says which lock guards what, for clang to check where VA_CHECK_LOCKS is defined, as it is for the
// libraries of this tree; else the words mean nothing. Constructors and destructors are not
// checked: nobody else has the object.

#if defined(__clang__) && defined(VA_CHECK_LOCKS)
#define VA_LOCK_ATTRIBUTE(...) __attribute__((__VA_ARGS__))
#else
#define VA_LOCK_ATTRIBUTE(...)
#endif

// Of a field or a variable: read and written under this lock.
#define VA_GUARDED_BY(lock) VA_LOCK_ATTRIBUTE(guarded_by(lock))
// Of a function: its callers hold this lock.
#define VA_REQUIRES(lock) VA_LOCK_ATTRIBUTE(requires_capability(lock))

namespace va
{

// Holds a lock: one of the standard library, or the plain one of a record.
class VA_LOCK_ATTRIBUTE(scoped_lockable) ScopedLock
{
public:
    explicit ScopedLock(pthread_mutex_t &mutex) VA_LOCK_ATTRIBUTE(acquire_capability(mutex))
        : mutex_(mutex)
    {
        pthread_mutex_lock(&mutex_);
    }
    explicit ScopedLock(std::mutex &mutex) VA_LOCK_ATTRIBUTE(acquire_capability(mutex))
        : ScopedLock(*mutex.native_handle())
    {
    }
    ~ScopedLock() VA_LOCK_ATTRIBUTE(release_capability()) { pthread_mutex_unlock(&mutex_); }
    ScopedLock(const ScopedLock &) = delete;
    ScopedLock &operator=(const ScopedLock &) = delete;

private:
    pthread_mutex_t &mutex_;
};

// Lets a lock go that is held, and takes it again in the end.
class VA_LOCK_ATTRIBUTE(scoped_lockable) ScopedUnlock
{
public:
    explicit ScopedUnlock(pthread_mutex_t &mutex) VA_LOCK_ATTRIBUTE(release_capability(mutex))
        : mutex_(mutex)
    {
        pthread_mutex_unlock(&mutex_);
    }
    ~ScopedUnlock() VA_LOCK_ATTRIBUTE(release_capability()) { pthread_mutex_lock(&mutex_); }
    ScopedUnlock(const ScopedUnlock &) = delete;
    ScopedUnlock &operator=(const ScopedUnlock &) = delete;

private:
    pthread_mutex_t &mutex_;
};

// std::unique_lock, for what waits on a condition or lets go in between.
class VA_LOCK_ATTRIBUTE(scoped_lockable) UniqueLock : public std::unique_lock<std::mutex>
{
public:
    explicit UniqueLock(std::mutex &mutex) VA_LOCK_ATTRIBUTE(acquire_capability(mutex))
        : unique_lock(mutex)
    {
    }
    ~UniqueLock() VA_LOCK_ATTRIBUTE(release_capability()) = default;

    void lock() VA_LOCK_ATTRIBUTE(acquire_capability()) { unique_lock::lock(); }
    void unlock() VA_LOCK_ATTRIBUTE(release_capability()) { unique_lock::unlock(); }
};

// For a record that no other thread knows yet, or knows any more: from here to the function's end
// it counts as locked, and is not.
template <class Mutex>
void assume_locked(const Mutex &lock) VA_LOCK_ATTRIBUTE(assert_capability(lock))
{
    static_cast<void>(lock);
}

} // namespace va
