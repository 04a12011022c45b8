#include "va/watchdog.h"

#include "event/loop.h"
#include "va/log.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <limits>

namespace va
{

namespace
{

using namespace std::chrono_literals;
using Analytics = VaHealth::Analytics;

constexpr std::chrono::milliseconds status_interval = 1s; // where no watchdog sets one

const char *sentence_for(Analytics analytics)
{
    constexpr const char *sentences[] = {
        "Opens the analytics modules.",
        "Analytics run.",
        "Analytics hang, no pass for over three seconds.",
        "Runs without analytics: ",
    };
    return sentences[static_cast<std::size_t>(analytics)];
}

int timer_ms(std::chrono::microseconds interval)
{
    if (interval == interval.zero())
        return static_cast<int>(status_interval.count());
    const std::int64_t half = std::chrono::milliseconds(interval / 2 / 1ms).count();
    return static_cast<int>(std::clamp<std::int64_t>(half, 1, std::numeric_limits<int>::max()));
}

} // namespace

Watchdog::Watchdog(const VaHealth &health)
    : health_(health), notifier_([](const char *text) { log_error("%s", text); })
{
}

bool Watchdog::start()
{
    return !notifier_.wanted() ||
           (add_always_event(EVENT_ONESHOT, on_time, this) &&
            add_timer_event(timer_ms(notifier_.interval()), EVENT_ENABLED, on_time, this));
}

void Watchdog::notify_not_started()
{
    const VaHealth::Reason why = health_.record().boot_failure;
    char status[256];
    std::snprintf(status, sizeof status, "STATUS=Did not start: %s.",
                  *why.text ? why.text : "the log has the reason");
    notifier_.send(status);
}

// A timer that is late, after a pause or a step of the clock, would be called once for each
// interval that has passed: so the next one counts from now.
std::int32_t Watchdog::on_time(event_info *info, void *watchdog)
{
    if (info->type == EVENT_TIMER) {
        set_event_enabled(info->event, 0);
        resched_event(info->event, nullptr);
    }
    static_cast<Watchdog *>(watchdog)->notify();
    return 0;
}

void Watchdog::notify()
{
    const Analytics now = health_.analytics();
    char status[256];
    std::snprintf(status, sizeof status, "%s%s", sentence_for(now),
                  now == Analytics::Ended ? health_.record().why_ended.text : "");
    notifier_.notify(status, now == Analytics::Start || now == Analytics::Run);
}

} // namespace va
