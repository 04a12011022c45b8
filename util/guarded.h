#pragma once

#include <atomic>
#include <mutex>

#include <pthread.h>

// What threads share: plain words, and what a lock guards, for clang to check where VA_CHECK_LOCKS
// is defined, as it is for the libraries of this tree; elsewhere the annotations are empty.
// Constructors and destructors are not checked: nobody else has the object.

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

// A plain word that threads, or a thread and a signal handler, share: all who write it, and all who
// read it while another may write, do so by this.
template <class Word>
std::atomic_ref<Word> shared(Word &word)
{
    static_assert(std::atomic_ref<Word>::is_always_lock_free, "a signal handler may use it");
    return std::atomic_ref<Word>(word);
}

template <class Word>
Word load_shared(const Word &word, std::memory_order order = std::memory_order_seq_cst)
{
    return shared(const_cast<Word &>(word)).load(order); // which takes no const one
}

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

// Releases a lock that is held, and takes it again at the end.
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

// std::unique_lock, for waits on a condition, and for a release in between.
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

// For a record that no other thread knows yet, or any more: from here to the end of the function it
// counts as locked, and is not.
template <class Mutex>
void assume_locked(const Mutex &lock) VA_LOCK_ATTRIBUTE(assert_capability(lock))
{
    static_cast<void>(lock);
}

} // namespace va
