#pragma once

#include <chrono>

#include <time.h>

using Clock = std::chrono::steady_clock;

inline std::chrono::nanoseconds time_of(clockid_t clock)
{
    timespec used{};
    clock_gettime(clock, &used);
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

// The time of the processor that the calling thread has used, and all threads together.
inline std::chrono::nanoseconds thread_time()
{
    return time_of(CLOCK_THREAD_CPUTIME_ID);
}

inline std::chrono::nanoseconds process_time()
{
    return time_of(CLOCK_PROCESS_CPUTIME_ID);
}
