#pragma once

#include "util/notify.h"
#include "va/health.h"

#include <cstdint>

struct event_info;

namespace va
{

// Notifies the supervisor, if there is one, that the daemon serves its clients, how its analytics
// are doing, that it is alive, and that it is about to end. Main thread.
class Watchdog
{
public:
    // Takes a supervisor's variables out of the environment. `health` outlives the watchdog.
    explicit Watchdog(const VaHealth &health);

    // Adds its events to the event loop, whose run it must outlive: READY=1 in the first cycle,
    // STATUS= whenever that changes, and, at half the interval that the supervisor asks for,
    // WATCHDOG=1 as long as the analytics do not hang and have not ended. False when memory is
    // short.
    bool start();

    void notify_stopping() { notifier_.send("STOPPING=1\nSTATUS=Stops."); }
    void notify_not_started();

private:
    static std::int32_t on_time(event_info *info, void *watchdog);
    void notify();

    const VaHealth &health_;
    Notifier notifier_;
};

} // namespace va
