#pragma once

#include "platform/sim/source.h"

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
        const std::scoped_lock lock(mutex_);
        return times_rung_;
    }

    void ring()
    {
        {
            const std::scoped_lock lock(mutex_);
            ++times_rung_;
        }
        rung_.notify_all();
    }

    // Waits until `end` unless it has rung more often than `heard`; returns how often it has.
    std::uint64_t wait(std::uint64_t heard, Moment end)
    {
        std::unique_lock lock(mutex_);
        rung_.wait_until(lock, end, [&] { return times_rung_ != heard; });
        return times_rung_;
    }

private:
    std::mutex mutex_; // guards what follows
    std::condition_variable rung_;
    std::uint64_t times_rung_ = 0;
};
