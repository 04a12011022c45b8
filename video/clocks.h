#pragma once

#include <chrono>

#include <time.h>

using Clock = std::chrono::steady_clock;

// The time of the processor that the calling thread has used.
inline std::chrono::nanoseconds thread_time()
{
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}
