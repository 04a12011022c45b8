#pragma once

#include <chrono>
#include <optional>

// When the program has to end: SIGINT or SIGTERM has arrived, or its time is up. One for the
// process, as signals are.
namespace va
{

using Clock = std::chrono::steady_clock;

// From now on a signal no longer ends the process by itself, and interrupts what waits. Without a
// deadline the time is never up.
void prepare_stop(std::optional<Clock::time_point> deadline);

bool must_stop();

// Milliseconds to wait at most before must_stop() is to be asked again, and not beyond `longest`; 0
// when the time is up.
int timeout_ms(std::chrono::microseconds longest = std::chrono::microseconds::max());

} // namespace va
