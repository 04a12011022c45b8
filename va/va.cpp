#include "va/va.h"

#include "util/util.h"
#include "va/log.h"
#include "va/modules.h"
#include "va/paths.h"
#include "va/run_dir.h"
#include "va/status.h"
#include "va/streams.h"
#include "va/va_proc.h"
#include "va/vana.h"

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
    return log_error("%s: fail.", "va_init");
}

// What a module that does not run would use is in force nowhere.
void read_settings_of(const VaDriver &driver, VaContext *context)
{
    std::optional<ConfFindings::Collector> collector;
    if (*driver.selected)
        collector.emplace(context->settings.findings);
    driver.getConf(context);
}

void read_settings(VaContext *context)
{
    for (const VaDriver &driver : va_drivers)
        read_settings_of(driver, context);
    context->settings.publish();
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
    if (renew_control_fifo())
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
