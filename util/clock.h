#pragma once

#include <cstdint>
#include <ctime>

// Private to this tree, like util/fd.h.
namespace va
{

// Microseconds of a clock that nobody sets, above 0.
inline std::uint64_t monotonic_us()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000 +
           static_cast<std::uint64_t>(time.tv_nsec / 1000);
}

} // namespace va
