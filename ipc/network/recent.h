#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// Two small instruments for what goes through a queue. They read no clock and take no lock; times
// are microseconds of a monotonic clock, above 0. Private to ipc/.

namespace va
{

// How long what is put into a queue of bytes stays there. Timed in groups, so that a record costs
// next to nothing: what is put in while a group is on its way makes up the next one, and a group
// counts from its first byte in to its last one out. That is never less than any of its records
// took, and at most twice the longest wait in a queue that never runs empty.
class QueueTimer
{
public:
    // Whether put() wants to know the time.
    bool wants_time() const { return ahead_ == 0 || next_ == 0; }

    void put(std::uint64_t now, std::uint32_t count)
    {
        if (ahead_ == 0) {
            ahead_ = count;
            since_ = now;
        } else if (next_ == 0) {
            next_ = now;
        }
    }

    // Takes `count` bytes out. Returns whether a group has ended: end() it then.
    bool take(std::uint32_t count)
    {
        ahead_ -= count < ahead_ ? count : ahead_;
        return ahead_ == 0;
    }

    // Begins the next group with the `left` bytes in the queue. Returns how long the last one took.
    std::uint64_t end(std::uint64_t now, std::uint32_t left)
    {
        const std::uint64_t time = now - since_;
        since_ = next_;
        next_ = 0;
        ahead_ = left;
        return time;
    }

private:
    std::uint64_t since_ = 0; // begin of the group on its way
    std::uint64_t next_ = 0;  // and of the one behind it; 0: there is none
    std::uint32_t ahead_ = 0; // bytes of the group on its way; 0: there is none
};

// The greatest value of the last minute, or of up to ten seconds more.
class RecentGreatest
{
public:
    void add(std::uint64_t now, std::uint32_t value)
    {
        Span &span = spans_[static_cast<std::size_t>(now / span_us % spans_.size())];
        if (span.number != now / span_us)
            span = {now / span_us, 0};
        if (value > span.greatest)
            span.greatest = value;
    }

    std::uint32_t at(std::uint64_t now) const
    {
        std::uint32_t greatest = 0;
        for (const Span &span : spans_) {
            if (span.number + spans_.size() > now / span_us && span.greatest > greatest)
                greatest = span.greatest;
        }
        return greatest;
    }

private:
    static constexpr std::uint64_t span_us = 10'000'000;
    struct Span {
        std::uint64_t number; // of ten seconds of the clock
        std::uint32_t greatest;
    };
    std::array<Span, 7> spans_{};
};

} // namespace va
