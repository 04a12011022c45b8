#include "event/clock.h"

#include <cstdint>

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
