#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

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
        if (is_over(now)) {
            second_ = now;
            printed_ = 0;
            due_ += std::exchange(more_, 0);
        }
        const std::uint32_t allowed = std::min(count, lines_a_second - printed_);
        printed_ += allowed;
        more_ += count - allowed;
        return allowed;
    }

    // Whether there are lines to tell of.
    bool has_more() const { return due_ + more_ > 0; }

    // How many were not printed in the seconds that are over, to be told now.
    std::uint32_t take_more(std::uint64_t now)
    {
        if (is_over(now))
            due_ += std::exchange(more_, 0);
        return std::exchange(due_, 0);
    }

private:
    static constexpr std::uint64_t second_us = 1'000'000;

    bool is_over(std::uint64_t now) const { return now - second_ >= second_us; }

    std::uint64_t second_ = 0;  // its begin
    std::uint32_t printed_ = 0; // in this second
    std::uint32_t more_ = 0;    // not printed in this second
    std::uint32_t due_ = 0;     // in those before
};

} // namespace va
