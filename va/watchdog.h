#pragma once

#include "util/notify.h"
#include "va/health.h"

#include <cstdint>

struct event_info;

// Tells the supervisor, when there is one that wants to know, that the daemon serves its clients,
// how its analytics do, that it still lives, and that it is about to end. Main thread.
class Watchdog
{
public:
    // Takes what a supervisor says out of the environment. `health` outlives the watchdog.
    explicit Watchdog(const VaHealth &health);

    // Adds what it does to the event loop, where it must outlive the loop's run: READY=1 in the
    // first cycle, STATUS= whenever that changes, and, in half the interval that the supervisor
    // asks for, WATCHDOG=1 as long as the analytics do not hang and have not ended. False when
    // memory is short.
    bool start();

    void says_stopping();
    void says_not_started();

private:
    static std::int32_t on_time(event_info *info, void *watchdog);
    void tell();

    const VaHealth &health_;
    Notifier notifier_;
};
