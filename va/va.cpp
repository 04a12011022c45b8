#include "va/va.h"

#include "util/fd.h"
#include "util/util.h"
#include "va/coprocessor.h"
#include "va/drivers.h"
#include "va/log.h"
#include "va/paths.h"
#include "va/run_dir.h"

#include <cstdio>
#include <optional>

namespace
{

int boot(VaContext *context)
{
    if (va_vana_boot(context) == 0)
        return 0;
    va_vana_quit(context);
    if (va_vana_boot(context) == 0)
        return 0;
    va::log_error("%s: fail.", "va_init");
    // A file that is missing has no line of its own.
    if (context->report && *context->report->health.record().boot_failure.text)
        std::fprintf(stderr, "%s\n", context->report->health.record().boot_failure.text);
    return -1;
}

void read_settings(VaContext *context)
{
    for (const VaDriver &driver : va_drivers) {
        std::optional<ConfFindings::Collector> collector;
        // What a module that does not run would use is not in force.
        if (*driver.selected && context->report)
            collector.emplace(context->report->settings.findings);
        driver.getConf(context);
    }
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
        return va::log_error("Can't init msg!\n");
    msg_register(context->msg, "reconfig", va_msg_reconfig, context);
    va_remove_status();
    msg_register(context->msg, "status", va_msg_status, context);
    const Fd kept = va::prepare_control_fifo(); // held until msg_start() has opened it
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
