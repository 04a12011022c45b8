#include "event/clock.h"

#include "event/internal.h"

#include <algorithm>

namespace
{

constexpr int early_ms = 4;

// How late or early a timer may be for time_diff() to show it; beyond, the difference wraps.
constexpr std::int64_t max_diff_us = 2'147'000'000;

std::int64_t microseconds(const timeval &time)
{
    return std::int64_t{time.tv_sec} * 1'000'000 + time.tv_usec;
}

timeval time_at(std::int64_t us)
{
    return {static_cast<time_t>(us / 1'000'000), static_cast<suseconds_t>(us % 1'000'000)};
}

} // namespace

int time_now(timeval *now)
{
    return gettimeofday(now, nullptr);
}

void time_add(timeval *time, int ms)
{
    time->tv_usec += suseconds_t{ms % 1000} * 1000;
    time->tv_sec += ms / 1000;
    if (time->tv_usec > 999'999) {
        time->tv_sec += 1;
        time->tv_usec -= 1'000'000;
    }
}

void time_future(timeval *time, int ms)
{
    time_now(time);
    time_add(time, ms);
}

int time_diff(const timeval *from, const timeval *to)
{
    const auto wrapped = [](auto value) { return static_cast<std::uint32_t>(value); };
    const std::uint32_t seconds = wrapped(to->tv_sec) - wrapped(from->tv_sec);
    const std::uint32_t microseconds = wrapped(to->tv_usec) - wrapped(from->tv_usec);
    return static_cast<std::int32_t>(seconds * 1'000'000 + microseconds + 500) / 1000;
}

int time_ago(const timeval *time)
{
    timeval now{};
    time_now(&now);
    return time_diff(time, &now);
}

int va::remaining_ms(const timeval &when, const timeval &now)
{
    if (microseconds(when) - microseconds(now) > max_diff_us)
        return max_diff_us / 1000;
    const int ms = -time_diff(&when, &now);
    return ms <= early_ms ? 0 : ms;
}

// A due time that the clock has left far behind would be made up for in hours of periods, and that
// of a beat which a clock set back has left far ahead would silence the timer. Such a beat is then
// as far ahead as it was at `previous`, but not behind: a timer that was moved only since the step
// would have periods to make up for that never were.
timeval va::follow_clock(const timeval &when, int interval, bool given, const timeval &now,
                         const timeval &previous)
{
    const std::int64_t clock = microseconds(now);
    const std::int64_t due = microseconds(when);
    const std::int64_t set_back = microseconds(previous) - clock;
    if (due - clock < -max_diff_us)
        return now;
    if (set_back > 0 && !given && due - clock > std::int64_t{interval} * 1000)
        return time_at(std::max(clock, due - set_back));
    return when;
}
