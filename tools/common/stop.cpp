#include "tools/common/stop.h"

#include <algorithm>
#include <atomic>
#include <csignal>

namespace va
{

namespace
{

using std::chrono::milliseconds;

// Bounds the delay of a signal that arrives just before a wait.
constexpr milliseconds longest_wait{200};

std::atomic<bool> stop_requested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "written by a signal handler");

std::optional<Clock::time_point> end;

} // namespace

void prepare_stop(std::optional<Clock::time_point> deadline)
{
    end = deadline;
    struct sigaction action = {}; // without SA_RESTART: a blocked call must return
    action.sa_handler = [](int) { stop_requested = true; };
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool must_stop()
{
    return stop_requested || (end && Clock::now() >= *end);
}

int timeout_ms(std::chrono::microseconds longest)
{
    std::chrono::nanoseconds left = std::min<std::chrono::microseconds>(longest_wait, longest);
    if (end)
        left = std::min<std::chrono::nanoseconds>(left, *end - Clock::now());
    return std::max(0, static_cast<int>(std::chrono::ceil<milliseconds>(left).count()));
}

} // namespace va
