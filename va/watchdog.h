#pragma once

#include "va/health.h"
#include "va/notify.h"

#include <chrono>
#include <cstdint>

struct event_info;

// Tells the supervisor, when there is one that wants to know, that the daemon serves its clients,
// how its analytics do, that it still lives, and that it is about to end. Main thread.
class Watchdog
{
public:
    // Reads NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID, and takes them out of the environment.
    // `health` outlives the watchdog.
    explicit Watchdog(const VaHealth &health);

    // Adds what it does to the event loop, where it must outlive the loop's run: READY=1 in the
    // first cycle, STATUS= whenever that changes, and, in half the interval that the supervisor
    // asks for, WATCHDOG=1 as long as the analytics do not hang and have not ended. False when
    // memory is short.
    bool start();

    void says_stopping();
    void says_not_started();

private:
    using Analytics = VaHealth::Analytics;

    static std::int32_t on_time(event_info *info, void *watchdog);
    void tell();

    const VaHealth &health_;
    Notifier notifier_;
    std::chrono::microseconds interval_; // zero: no watchdog
    bool ready_told_ = false;
    Analytics told_ = Analytics::start;
};
