#pragma once

#include "event/internal.h"
#include "event/loop.h"
#include "util/guarded.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <utility>

// What a server of many clients needs besides its sockets: a pause after a failed accept, a limit
// on what it prints, and measures of how long records wait. Private to ipc/.

namespace va
{

// A connection that could not be accepted stays pending and keeps its listener readable: the loop
// would try it at once, over and over. So accepts pause after a failed one, and the
// connection is tried again 100 ms later. Loop thread.

// The timer that ends the pause of `accept_event`, disabled until one begins; null when memory is
// short. Made beforehand, since an accept fails when resources are short. To be removed with the
// accept event.
EventOwner add_accept_pause(event *accept_event);

// Disables the accept event until the timer enables it again.
void pause_accepts(event *accept_pause);

// Microseconds of a clock that nobody sets, above 0. The classes below that are handed the time
// read no clock and take no lock.
std::uint64_t monotonic_us();

// Keeps a line that may be due thousands of times a second from filling a log: the first of each
// second are printed, the others counted, and the count is reported once a second.
class LineLimit
{
public:
    static constexpr std::uint32_t lines_a_second = 20;

    // `count` lines are due. Returns how many of them to print.
    std::uint32_t take(std::uint64_t now, std::uint32_t count)
    {
        advance(now);
        const std::uint32_t allowed = std::min(count, lines_a_second - printed_);
        printed_ += allowed;
        more_ += count - allowed;
        return allowed;
    }

    // Whether there are lines to report, now or later.
    bool has_more() const { return more_ > 0 || unreported_ > 0; }

    // How many were not printed in seconds that are over; they count as reported.
    std::uint32_t take_more(std::uint64_t now)
    {
        advance(now);
        return std::exchange(unreported_, 0);
    }

private:
    static constexpr std::uint64_t second_us = 1'000'000;

    void advance(std::uint64_t now)
    {
        if (now - second_ < second_us)
            return;
        second_ = now;
        printed_ = 0;
        unreported_ += std::exchange(more_, 0);
    }

    std::uint64_t second_ = 0;     // its begin
    std::uint32_t printed_ = 0;    // in this second
    std::uint32_t more_ = 0;       // likewise
    std::uint32_t unreported_ = 0; // of those before
};

// Limits each kind of line that a server prints about its clients.
class ClientLines
{
public:
    enum Kind { no_room, accepted, disconnected, write_failed, kinds };

    // Adds its timer to the loop. `path`, the server's in the lines, outlives this. False when
    // memory is short.
    bool start(const char *path);

    // `count` lines are due: how many of them to print. Any thread, once it has started.
    std::uint32_t to_print(Kind kind, std::uint32_t count = 1);

private:
    static std::int32_t on_time(event_info *info, void *lines);

    const char *path_ = nullptr;
    EventOwner timer_; // disabled unless there are lines to report
    std::mutex lock_;
    LineLimit limits_[kinds] VA_GUARDED_BY(lock_);
};

// How long what is put into a queue of bytes stays there. Timed in groups, so that a record costs
// next to nothing: what is put in while a group is on its way makes up the next one, and a group
// counts from its first byte in to its last one out. That is never less than any of its records
// took, and at most twice the longest wait in a queue that never runs empty.
class QueueTimer
{
public:
    // Whether put() needs the time.
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
        ahead_ -= std::min(count, ahead_);
        return ahead_ == 0;
    }

    // Begins the next group with the `left` bytes in the queue. Returns how long the last one took.
    std::uint64_t end(std::uint64_t now, std::uint32_t left)
    {
        const std::uint64_t time = now - since_;
        since_ = std::exchange(next_, 0);
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
        span.greatest = std::max(span.greatest, value);
    }

    std::uint32_t at(std::uint64_t now) const
    {
        std::uint32_t greatest = 0;
        for (const Span &span : spans_) {
            if (span.number + spans_.size() > now / span_us)
                greatest = std::max(greatest, span.greatest);
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
