#include "va/va_proc.h"

#include "va/log.h"
#include "va/modules.h"
#include "va/signals.h"

#include <algorithm>
#include <cstdio>

#include <unistd.h>

namespace
{

constexpr useconds_t idle_us = 100'000;

// Whether it runs now.
bool start_module(VaContext *context, const VaDriver &driver)
{
    context->health.opens(driver.module);
    const bool runs = driver.init(context) == 0;
    if (runs)
        context->health.runs(driver.module);
    else
        context->health.fails(driver.module, "did not start");
    return runs;
}

bool start_modules(VaContext *context)
{
    return std::ranges::all_of(va_drivers, [&](const VaDriver &driver) {
        return !(context->*driver.enabled) || start_module(context, driver);
    });
}

void reconfigure(VaContext *context)
{
    // Cleared first: a request that arrives during the update counts for the next pass.
    const bool by_command = context->reconfig.exchange(0) != 0;
    const bool by_signal = hangup.exchange(0) != 0;
    if (!by_command && !by_signal)
        return;
    for (const VaDriver &driver : va_drivers) {
        if (context->*driver.enabled && driver.updateConfig)
            driver.updateConfig(context);
    }
    context->settings.publish_reload();
}

// Each enabled module once.
Poll poll_modules(VaContext *context)
{
    Poll pass = Poll::nothing;
    for (const VaModule module : va_polled) {
        const VaDriver &driver = driver_of(module);
        const Poll outcome = context->*driver.enabled ? driver.poll(context) : Poll::nothing;
        if (outcome == Poll::end)
            return Poll::end;
        if (outcome == Poll::result)
            pass = Poll::result;
    }
    return pass;
}

void run(VaContext *context)
{
    while (!terminate) {
        context->health.begins_pass();
        reconfigure(context);
        switch (poll_modules(context)) {
        case Poll::end:
            return;
        case Poll::nothing:
            usleep(idle_us);
            break;
        case Poll::result:
            break;
        }
    }
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
    const ConfFindings::Collector collector(context->settings.findings);
    if (start_modules(context)) {
        context->settings.publish();
        run(context);
    }
    std::printf("%s: end\n", "va_proc");
    context->health.ends();
    if (!terminate)
        log_error("Analytics have ended: %s. Until a restart the sockets bring nothing.",
                  context->health.why_ended().text);
    context->threadEnded = 1;
    return nullptr;
}

int va_msg_reconfig(void *argument, const char *, int)
{
    static_cast<VaContext *>(argument)->reconfig = 1;
    return 0;
}
