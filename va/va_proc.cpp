#include "util/guarded.h"
#include "va/drivers.h"
#include "va/log.h"
#include "va/process.h"
#include "va/va.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>

#include <unistd.h>

namespace
{

using va::Outcome;

constexpr useconds_t idle_us = 100'000;

// Whether it runs now.
bool start_module(VaContext *context, const VaDriver &driver)
{
    va::report(context->report, &VaHealth::opens, driver.module);
    const bool runs = driver.init(context) == 0;
    if (runs)
        va::report(context->report, &VaHealth::runs, driver.module);
    else
        va::report(context->report, &VaHealth::fails, driver.module, "did not start", 0);
    return runs;
}

bool start_modules(VaContext *context)
{
    return std::ranges::all_of(va_drivers, [&](const VaDriver &driver) {
        return !(context->*driver.enabled) || start_module(context, driver);
    });
}

void update_settings(VaContext *context)
{
    for (const VaDriver &driver : va_drivers) {
        if (context->*driver.enabled && driver.updateConfig)
            driver.updateConfig(context);
    }
    if (context->report)
        context->report->settings.publish_reload();
}

bool take_request(int &flag)
{
    return va::load_shared(flag) != 0 && va::shared(flag).exchange(0) != 0;
}

// Reads the settings again on request. With a slow store and requests without end the results would
// wait: so at most a fifth of the time is spent on it, and a request that comes too early waits.
class Reloads
{
public:
    void pass(VaContext *context)
    {
        using std::chrono::steady_clock;
        const steady_clock::time_point start = steady_clock::now();
        if (start < next_)
            return;
        // Cleared first: a request that arrives during the update is for the next pass.
        const bool by_command = take_request(context->reconfig);
        const bool by_signal = take_request(va::hangup);
        if (!by_command && !by_signal)
            return;
        update_settings(context);
        const steady_clock::time_point end = steady_clock::now();
        next_ = end + 4 * (end - start);
    }

private:
    std::chrono::steady_clock::time_point next_{};
};

// Each enabled module once, up to the one whose read ends the thread.
Outcome poll_modules(VaContext *context)
{
    Outcome pass = Outcome::Nothing;
    for (const VaModule module : va_polled) {
        const VaDriver &driver = va_driver_of(module);
        if (context->*driver.enabled && pass != Outcome::End)
            pass = std::max(pass, driver.read(context, module, driver.read_name));
    }
    return pass;
}

void run(VaContext *context)
{
    Reloads reloads;
    while (!va::load_shared(terminate)) {
        va::report(context->report, &VaHealth::begins_pass);
        reloads.pass(context);
        const Outcome pass = poll_modules(context);
        if (pass == Outcome::End)
            return;
        if (pass == Outcome::Nothing)
            usleep(idle_us);
    }
}

void report_end(VaReport *report)
{
    const bool requested = va::load_shared(terminate) != 0;
    va::report(report, &VaHealth::ends,
               requested ? "told to" : "a read was cancelled, though nobody has asked va to stop");
    if (report && !requested)
        va::log_error("Analytics have ended: %s. Until a restart the sockets bring nothing.",
                      report->health.record().why_ended.text);
}

} // namespace

soft_queue *va_new_wake()
{
    soft_queue *wake = new_soft_queue(1);
    if (wake && !add_softqueue_event(wake, 0, null_timer, nullptr))
        free_soft_queue(&wake);
    return wake;
}

void *va_proc(void *argument)
{
    auto *context = static_cast<VaContext *>(argument);
    std::optional<ConfFindings::Collector> collector;
    if (context->report)
        collector.emplace(context->report->settings.findings);
    if (start_modules(context)) {
        if (context->report)
            context->report->settings.publish();
        run(context);
    }
    std::printf("%s: end\n", "va_proc");
    report_end(context->report);
    va::shared(context->threadEnded) = 1;
    return nullptr;
}

int va_msg_reconfig(void *argument, const char *, int)
{
    va::shared(static_cast<VaContext *>(argument)->reconfig) = 1;
    return 0;
}
