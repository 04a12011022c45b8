#include "ipc/network/client_lines.h"

#include "util/clock.h"

#include <cstdio>

namespace
{

constexpr int interval_ms = 1000;

void print_more(va::ClientLines::Kind kind, const char *path, std::uint32_t count)
{
    using Lines = va::ClientLines;
    switch (kind) {
    case Lines::no_room:
        std::printf("Can't write data to client.sck_path=%s: %u more\n", path, count);
        break;
    case Lines::accepted:
        std::printf("%s: accept client: %u more\n", path, count);
        break;
    case Lines::disconnected:
        std::printf("%s: client disconnect: %u more\n", path, count);
        break;
    default:
        std::printf("%s: write error: %u more\n", path, count);
        break;
    }
}

} // namespace

bool va::ClientLines::start(const char *path)
{
    path_ = path;
    timer_.reset(add_timer_event(interval_ms, EVENT_ASLEEP, on_time, this));
    return timer_;
}

std::uint32_t va::ClientLines::to_print(Kind kind, std::uint32_t count)
{
    const ScopedLock lock(lock_);
    const std::uint32_t allowed = limits_[kind].take(monotonic_us(), count);
    if (allowed < count)
        set_event_enabled(timer_, 1);
    return allowed;
}

// It sleeps again first: whoever has more lines from here on wakes it.
std::int32_t va::ClientLines::on_time(event_info *info, void *lines)
{
    auto &self = *static_cast<ClientLines *>(lines);
    set_event_enabled(info->event, 0);
    bool again = false;
    for (int kind = 0; kind < kinds; ++kind)
        again |= self.tell_more(static_cast<Kind>(kind));
    if (again)
        resched_event(info->event, nullptr);
    return 0;
}

// Returns whether there are lines to tell of later.
bool va::ClientLines::tell_more(Kind kind)
{
    std::uint32_t more = 0;
    bool later = false;
    {
        const ScopedLock lock(lock_);
        more = limits_[kind].take_more(monotonic_us());
        later = limits_[kind].has_more();
    }
    if (more > 0)
        print_more(kind, path_, more);
    return later;
}
