#pragma once

#include "conf/findings.h"
#include "util/guarded.h"
#include "va/health.h"

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace va
{

// The settings in force, as lines of text for people: made by the thread that applies them, read by
// any other.
class SettingsReport
{
public:
    struct Shown {
        std::string lines; // "filter.N...", "setting.KEY: VALUE", "left_out.KEY: VALUE (WHY)"
        bool is_complete = false;
        std::uint32_t reloads = 0;
        std::chrono::system_clock::time_point last_reload{};
    };

    // What the drivers have read, and what of it is not used. Like the records in VaContext it is
    // the main thread's until the processing thread starts, and that one's from then on.
    ConfFindings findings;

    // Called by the same thread: they are in force; the second counts a reload besides.
    void publish();
    void publish_reload();

    // Any thread. Throws std::bad_alloc.
    Shown shown() const;

private:
    mutable std::mutex lock_;
    Shown shown_ VA_GUARDED_BY(lock_);
};

} // namespace va

// What the daemon reports of itself, in its status and to a supervisor.
struct VaReport {
    VaHealth health;
    va::SettingsReport settings;
};

namespace va
{

// report(context->report, &VaHealth::opens, module); does nothing where there is no report.
template <class... Args>
void report(VaReport *to, void (VaHealth::*event)(Args...), std::type_identity_t<Args>... args)
{
    if (to)
        (to->health.*event)(args...);
}

} // namespace va
