#pragma once

#include <algorithm>
#include <cstdint>

// Keeps a line that may come thousands of times a second from filling a log: the first of each
// second are printed, the others counted, and the count is told once a second. It reads no clock
// and takes no lock; times are microseconds of a monotonic clock. Private to ipc/.

namespace va
{

class LineLimit
{
public:
    static constexpr std::uint32_t lines_a_second = 20;

    // `count` lines are due. Returns how many of them to print.
    std::uint32_t take(std::uint64_t now, std::uint32_t count)
    {
        if (now - second_ >= second_us) {
            second_ = now;
            printed_ = 0;
        }
        const std::uint32_t allowed = std::min(count, lines_a_second - printed_);
        printed_ += allowed;
        more_ += count - allowed;
        return allowed;
    }

    // Whether there are lines to tell of.
    bool has_more() const { return more_ > 0; }

    // How many were not printed, to be told now: once the second that let none through is over.
    std::uint32_t take_more(std::uint64_t now)
    {
        if (now - second_ < second_us)
            return 0;
        const std::uint32_t more = more_;
        more_ = 0;
        return more;
    }

private:
    static constexpr std::uint64_t second_us = 1'000'000;

    std::uint64_t second_ = 0;  // its begin
    std::uint32_t printed_ = 0; // in this second
    std::uint32_t more_ = 0;
};

} // namespace va
