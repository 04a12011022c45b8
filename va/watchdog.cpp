#include "va/watchdog.h"

#include "event/event.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string_view>

#include <unistd.h>

namespace
{

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds status_interval = 1s; // where no watchdog sets one

// Nothing in place of what is not one number.
template <class Number>
std::optional<Number> take_number(const char *variable)
{
    const char *const text = std::getenv(variable);
    if (!text)
        return {};
    Number number = 0;
    const std::string_view all = text;
    const auto [stop, error] = std::from_chars(all.begin(), all.end(), number);
    const bool whole = error == std::errc() && stop == all.end();
    unsetenv(variable);
    return whole ? std::optional(number) : std::nullopt;
}

// What the supervisor asks of this process.
std::chrono::microseconds take_interval()
{
    const bool for_another =
        std::getenv("WATCHDOG_PID") && take_number<pid_t>("WATCHDOG_PID") != getpid();
    const auto interval = take_number<std::int64_t>("WATCHDOG_USEC").value_or(0);
    return std::chrono::microseconds(for_another ? 0 : std::max<std::int64_t>(interval, 0));
}

const char *in_words(VaHealth::Analytics analytics)
{
    switch (analytics) {
    case VaHealth::Analytics::start:
        return "STATUS=Opens the analytics modules.";
    case VaHealth::Analytics::run:
        return "STATUS=Analytics run.";
    case VaHealth::Analytics::hang:
        return "STATUS=Analytics hang, no pass for over three seconds.";
    default:
        return "STATUS=Runs without analytics: ";
    }
}

int timer_ms(std::chrono::microseconds interval)
{
    if (interval == interval.zero())
        return static_cast<int>(status_interval.count());
    const std::int64_t half = std::chrono::milliseconds(interval / 2 / 1ms).count();
    return static_cast<int>(std::clamp<std::int64_t>(half, 1, std::numeric_limits<int>::max()));
}

} // namespace

Watchdog::Watchdog(const VaHealth &health) : health_(health), interval_(take_interval()) {}

bool Watchdog::start()
{
    return !notifier_.wanted() ||
           (add_always_event(EVENT_ONESHOT, on_time, this) &&
            add_timer_event(timer_ms(interval_), EVENT_ENABLED, on_time, this));
}

void Watchdog::says_stopping()
{
    notifier_.send("STOPPING=1\nSTATUS=Stops.");
}

void Watchdog::says_not_started()
{
    notifier_.send("STATUS=Did not start, the log has the reason.");
}

std::int32_t Watchdog::on_time(event_info *, void *watchdog)
{
    static_cast<Watchdog *>(watchdog)->tell();
    return 0;
}

// What could not be sent is sent the next time.
void Watchdog::tell()
{
    const Analytics now = health_.analytics();
    const bool news = !ready_told_ || now != told_;
    const bool lives = interval_ > 0us && (now == Analytics::start || now == Analytics::run);
    if (!news && !lives)
        return;
    char lines[256];
    const int length = std::snprintf(
        lines, sizeof lines, "%s%s%s%s%s", ready_told_ ? "" : "READY=1\n",
        news ? in_words(now) : "", news && now == Analytics::ended ? health_.why_ended().text : "",
        news ? "\n" : "", lives ? "WATCHDOG=1\n" : "");
    if (notifier_.send({lines, static_cast<std::size_t>(length)}) && news) {
        ready_told_ = true;
        told_ = now;
    }
}
