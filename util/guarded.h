#pragma once

#include <mutex>

// Says which lock guards what, for clang to check where VA_CHECK_LOCKS is defined, as it is for the
// libraries of this tree; else the words mean nothing. Constructors and destructors are not
// checked: nobody else has the object. The locks themselves are those of the standard library.

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

// std::scoped_lock of one mutex.
class VA_LOCK_ATTRIBUTE(scoped_lockable) ScopedLock : std::scoped_lock<std::mutex>
{
public:
    explicit ScopedLock(std::mutex &mutex) VA_LOCK_ATTRIBUTE(acquire_capability(mutex))
        : scoped_lock(mutex)
    {
    }
    ~ScopedLock() VA_LOCK_ATTRIBUTE(release_capability()) = default;
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
inline void assume_locked(const std::mutex &lock) VA_LOCK_ATTRIBUTE(assert_capability(lock))
{
    static_cast<void>(lock);
}

} // namespace va
