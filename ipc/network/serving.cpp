#include "ipc/network/serving.h"

#include <chrono>
#include <cstdio>

namespace
{

constexpr int accept_pause_ms = 100;
constexpr int report_interval_ms = 1000;

// What stands before and behind the server's path; by kind.
constexpr const char *more_texts[][2] = {
    {"Can't write data to client.sck_path=", ""},
    {"", ": accept client"},
    {"", ": client disconnect"},
    {"", ": write error"},
};
static_assert(std::size(more_texts) == va::ClientLines::kinds);

std::int32_t end_pause(event_info *info, void *accept_event)
{
    set_event_enabled(info->event, 0);
    set_event_enabled(static_cast<event *>(accept_event), 1);
    return 0;
}

} // namespace

va::EventOwner va::add_accept_pause(event *accept_event)
{
    return EventOwner(add_timer_event(accept_pause_ms, EVENT_ASLEEP, end_pause, accept_event));
}

void va::pause_accepts(event *accept_pause)
{
    set_event_enabled(static_cast<event *>(accept_pause->arg), 0);
    resched_event(accept_pause, nullptr); // a disabled timer is due one interval from now
}

std::uint64_t va::monotonic_us()
{
    using namespace std::chrono;
    const auto time = steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(duration_cast<microseconds>(time).count());
}

bool va::ClientLines::start(const char *path)
{
    path_ = path;
    timer_.reset(add_timer_event(report_interval_ms, EVENT_ASLEEP, on_time, this));
    return timer_ != nullptr;
}

std::uint32_t va::ClientLines::to_print(Kind kind, std::uint32_t count)
{
    const ScopedLock lock(lock_);
    const std::uint32_t allowed = limits_[kind].take(monotonic_us(), count);
    if (allowed < count)
        set_event_enabled(timer_.get(), 1);
    return allowed;
}

// It disables itself first: whoever has more lines from here on enables it again.
std::int32_t va::ClientLines::on_time(event_info *info, void *lines)
{
    set_event_enabled(info->event, 0);
    auto &self = *static_cast<ClientLines *>(lines);
    std::uint32_t more[kinds];
    bool later = false;
    {
        const ScopedLock lock(self.lock_);
        for (int kind = 0; kind < kinds; ++kind) {
            more[kind] = self.limits_[kind].take_more(monotonic_us());
            later |= self.limits_[kind].has_more();
        }
    }
    for (int kind = 0; kind < kinds; ++kind) {
        const auto &[before, behind] = more_texts[kind];
        if (more[kind] > 0)
            std::printf("%s%s%s: %u more\n", before, self.path_, behind, more[kind]);
    }
    if (later)
        resched_event(info->event, nullptr);
    return 0;
}
