#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <utility>

#include <dlfcn.h>
#include <pthread.h>

// Replaces the program's pthread_mutex_unlock: one source of a program may include this.

inline thread_local int unlocks_left = -1; // of this thread, before after_unlock runs
inline std::function<void()> after_unlock;

// Every mutex of the program is let go of here.
int pthread_mutex_unlock(pthread_mutex_t *mutex) noexcept
{
    static void *next = dlsym(RTLD_NEXT, "pthread_mutex_unlock");
    const int result = reinterpret_cast<int (*)(pthread_mutex_t *)>(next)(mutex);
    if (unlocks_left >= 0 && unlocks_left-- == 0)
        after_unlock();
    return result;
}

// Runs `first`, and `second` in another thread once `first` has let go of its n-th mutex. Returns
// whether it has so many.
inline bool interleave(int n, const std::function<void()> &first,
                       const std::function<void()> &second)
{
    std::future<void> other;
    after_unlock = [&] {
        other = std::async(std::launch::async, second);
        other.wait_for(std::chrono::milliseconds(20)); // it may need another lock of `first`
    };
    unlocks_left = n;
    first();
    return std::exchange(unlocks_left, -1) < 0;
}
