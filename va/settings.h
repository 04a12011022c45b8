#pragma once

#include "conf/findings.h"
#include "util/guarded.h"

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

// The settings in force, as lines of text for people: made by the thread that applies them, looked
// at by any other.
class VaSettings
{
public:
    struct Shown {
        std::string lines; // "filter.N...", "setting.KEY: VALUE", "left_out.KEY: VALUE (WHY)"
        bool is_complete = false;
        std::uint32_t reloads = 0;
        std::chrono::system_clock::time_point last_reload{};
    };

    // What the drivers read and leave out. Like the records in VaContext the main thread's until
    // the processing thread starts, and then that one's.
    ConfFindings findings;

    // Called by the same: they are in force, once more after a reload.
    void publish();
    void publish_reload();

    // Any thread. Throws std::bad_alloc.
    Shown shown() const;

private:
    mutable std::mutex lock_;
    Shown shown_ VA_GUARDED_BY(lock_);
};
