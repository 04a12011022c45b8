#pragma once

#include "platform/sim/source.h"
#include "util/guarded.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>

// Wakes whoever waits for a change. Its lock is the innermost: any thread may ring, whatever it
// holds.
class Bell
{
public:
    std::uint64_t times_rung()
    {
        const va::ScopedLock lock(mutex_);
        return times_rung_;
    }

    void ring()
    {
        {
            const va::ScopedLock lock(mutex_);
            ++times_rung_;
        }
        rung_.notify_all();
    }

    // Waits until `end` unless it has rung more often than `heard`; returns how often it has.
    std::uint64_t wait(std::uint64_t heard, Moment end)
    {
        va::UniqueLock lock(mutex_);
        rung_.wait_until(lock, end, [&]() VA_REQUIRES(mutex_) { return times_rung_ != heard; });
        return times_rung_;
    }

private:
    std::mutex mutex_;
    std::condition_variable rung_;
    std::uint64_t times_rung_ VA_GUARDED_BY(mutex_) = 0;
};
