#include "va/va.h"

#include "util/fd.h"
#include "util/util.h"
#include "va/log.h"
#include "va/modules.h"
#include "va/paths.h"
#include "va/report.h"
#include "va/run_dir.h"
#include "va/status.h"
#include "va/streams.h"

#include <cstdio>
#include <optional>

namespace
{

// On standard error, once: a file that is missing has no line of its own.
void say_why_not_booted(const VaReport *report)
{
    if (!report)
        return;
    if (const VaHealth::Reason why = report->health.boot_failure(); *why.text)
        std::fprintf(stderr, "%s\n", why.text);
}

int boot(VaContext *context)
{
    if (va_vana_boot(context) == 0)
        return 0;
    va_vana_quit(context);
    if (va_vana_boot(context) == 0)
        return 0;
    log_error("%s: fail.", "va_init");
    say_why_not_booted(context->report);
    return -1;
}

// What a module that does not run would use is in force nowhere.
void read_settings_of(const VaDriver &driver, VaContext *context)
{
    std::optional<ConfFindings::Collector> collector;
    if (*driver.selected && context->report)
        collector.emplace(context->report->settings.findings);
    driver.getConf(context);
}

void read_settings(VaContext *context)
{
    for (const VaDriver &driver : va_drivers)
        read_settings_of(driver, context);
    if (context->report)
        context->report->settings.publish();
}

void create_result_servers(VaContext *context)
{
    for (const VaStream &stream : va_streams) {
        if (context->*stream.enabled)
            sck_svr_init(&(context->*stream.server), stream.path, stream.client_buffer);
    }
}

int start_control_server(VaContext *context)
{
    msg_conf conf{};
    std::snprintf(conf.path, sizeof conf.path, "%s", va_ctrl_path);
    if (msg_init(&context->msg, conf) == -1)
        return log_error("Can't init msg!\n");
    msg_register(context->msg, "reconfig", va_msg_reconfig, context);
    remove_status_file();
    msg_register(context->msg, "status", va_msg_status, context);
    const Fd kept = prepare_control_fifo(); // until it is open, so that no waiting writer loses it
    msg_start(context->msg);
    return 0;
}

} // namespace

int va_init(VaContext *context)
{
    dir_create(va_run_dir);
    conf_getSensorConfig(&context->sensorConf);
    context->wideAspect = conf_isWideAspect(context->sensorConf.width, context->sensorConf.height);
    if (va_cl_init() != 0 || boot(context) != 0 || va_vana_init(context) != 0)
        return -1;
    read_settings(context);
    create_result_servers(context);
    return start_control_server(context);
}

int va_stop(VaContext *context)
{
    for (const VaDriver &driver : va_drivers) {
        if (driver.cancel)
            driver.cancel(context);
    }
    va_vana_quit(context);
    va_cl_stop();
    return 0;
}
