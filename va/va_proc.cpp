#include "va/va_proc.h"

#include "platform/ne3_val.h"
#include "va/process.h"
#include "va/va_dis.h"
#include "va/va_fd.h"
#include "va/va_od.h"
#include "va/va_ta.h"

#include <cerrno>
#include <cstdio>

#include <syslog.h>
#include <unistd.h>

namespace
{

constexpr useconds_t idle_us = 100'000;
constexpr int read_prm = 1; // the library's; always 1

enum class Poll { nothing, result, end };

// The library's result records, reused by every pass.
struct Results {
    ne3_val_od_result od;
    ne3_val_ta_result ta;
    ne3_val_fd_result fd;
};

// Whether it runs now, or is not to run.
bool start_module(VaContext *context, VaModule module, std::int32_t enabled,
                  int (*init)(VaContext *))
{
    if (!enabled)
        return true;
    context->health.opens(module);
    const bool runs = init(context) == 0;
    if (runs)
        context->health.runs(module);
    else
        context->health.fails(module, "did not start");
    return runs;
}

bool start_modules(VaContext *context)
{
    return start_module(context, VaModule::od, context->odEnable, va_od_init) &&
           start_module(context, VaModule::fd, context->fdEnable, va_fd_init) &&
           start_module(context, VaModule::ta, context->taEnable, va_ta_init) &&
           start_module(context, VaModule::dis, context->disEnable, va_dis_init);
}

void reconfigure(VaContext *context)
{
    // Cleared first: a request that arrives during the update counts for the next pass.
    const bool by_command = context->reconfig.exchange(0) != 0;
    const bool by_signal = hangup.exchange(0) != 0;
    if (!by_command && !by_signal)
        return;
    if (context->odEnable)
        va_od_updateConfig(context);
    if (context->taEnable)
        va_ta_updateConfig(context);
    context->settings.publish_reload();
}

// Not after the pass: the next module's read may wait.
void wake_loop(const VaContext *context)
{
    if (context->wake)
        soft_queue_add(context->wake, 0);
}

void read_has_failed(VaContext *context, VaModule module, const char *name)
{
    const int code = errno;
    if (code == NE3_VAL_ERR_CANCEL)
        return;
    context->health.fails(module, name, code);
    syslog(LOG_ERR, "%s failed.\n", name);
}

template <class Result>
Poll poll_module(VaContext *context, VaModule module, int (*get_data)(int, Result *),
                 const char *name, Result &result, int (*relay)(VaContext *, const Result *))
{
    switch (get_data(read_prm, &result)) {
    case 0:
        context->health.has_result(module);
        relay(context, &result);
        wake_loop(context);
        return Poll::result;
    case -1:
        read_has_failed(context, module, name);
        return Poll::end;
    default:
        return Poll::nothing;
    }
}

Poll poll_od(VaContext *context, Results &results)
{
    return poll_module(context, VaModule::od, ne3_val_od_get_data, "ne3_val_od_get_data",
                       results.od, va_od_processData);
}

Poll poll_ta(VaContext *context, Results &results)
{
    return poll_module(context, VaModule::ta, ne3_val_ta_get_data, "ne3_val_ta_get_data",
                       results.ta, va_ta_processData);
}

Poll poll_fd(VaContext *context, Results &results)
{
    return poll_module(context, VaModule::fd, ne3_val_fd_get_data, "ne3_val_fd_get_data",
                       results.fd, va_fd_processData);
}

// In the order of a pass.
constexpr struct {
    std::int32_t VaContext::*enabled;
    Poll (*poll)(VaContext *, Results &);
} polled_modules[] = {
    {&VaContext::odEnable, poll_od},
    {&VaContext::taEnable, poll_ta},
    {&VaContext::fdEnable, poll_fd},
};

// Each enabled module once.
Poll poll_modules(VaContext *context, Results &results)
{
    Poll pass = Poll::nothing;
    for (const auto &module : polled_modules) {
        const Poll outcome =
            context->*module.enabled ? module.poll(context, results) : Poll::nothing;
        if (outcome == Poll::end)
            return Poll::end;
        if (outcome == Poll::result)
            pass = Poll::result;
    }
    return pass;
}

void run(VaContext *context)
{
    Results results{};
    while (!terminate) {
        context->health.begins_pass();
        reconfigure(context);
        switch (poll_modules(context, results)) {
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
        syslog(LOG_ERR, "Analytics have ended: %s. Until a restart the sockets bring nothing.",
               context->health.why_ended().text);
    context->threadEnded = 1;
    return nullptr;
}

int va_msg_reconfig(void *argument, const char *, int)
{
    static_cast<VaContext *>(argument)->reconfig = 1;
    return 0;
}
