#pragma once

#include "event/event_owner.h"
#include "ipc/network/line_limit.h"
#include "util/guarded.h"

#include <cstdint>
#include <mutex>

// Keeps what a server tells of its clients from filling a log: of each kind of line the first in a
// second are printed, and once a second is told how many more there were. Private to ipc/.

namespace va
{

class ClientLines
{
public:
    enum Kind { no_room, accepted, disconnected, write_failed, kinds };

    // Adds its timer to the loop. `path`, the server's in the lines, outlives this. False when
    // memory is short.
    bool start(const char *path);

    // `count` lines are due: how many of them to print. Any thread, once it has started.
    std::uint32_t to_print(Kind kind, std::uint32_t count = 1);

private:
    static std::int32_t on_time(event_info *info, void *lines);
    bool tell_more(Kind kind);

    const char *path_ = nullptr;
    EventOwner timer_; // asleep unless there are lines to tell of
    std::mutex lock_;
    LineLimit limits_[kinds] VA_GUARDED_BY(lock_);
};

} // namespace va
