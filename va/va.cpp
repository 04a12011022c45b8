#include "va/va.h"

#include "util/util.h"
#include "va/paths.h"
#include "va/va_dis.h"
#include "va/va_fd.h"
#include "va/va_od.h"
#include "va/va_proc.h"
#include "va/va_ta.h"
#include "va/vana.h"

#include <cstdio>

#include <syslog.h>

namespace
{

// Bytes a client may have outstanding: some fifty alarms, or one result of up to 1638 objects.
constexpr std::uint32_t client_buffer_size = 1024;
constexpr std::uint32_t od_client_buffer_size = 65536;

bool is_wide(const SensorConfig &sensor)
{
    constexpr std::int32_t aspect_16_9 = 177; // in hundredths, cut
    return sensor.height != 0 && 100 * sensor.width / sensor.height == aspect_16_9;
}

int boot(VaContext *context)
{
    if (va_vana_boot(context) == 0)
        return 0;
    va_vana_quit(context);
    if (va_vana_boot(context) == 0)
        return 0;
    syslog(LOG_ERR, "%s: fail.", "va_init");
    return -1;
}

void read_settings(VaContext *context)
{
    va_od_getConf(context);
    va_fd_getConf(context);
    va_ta_getConf(context);
    va_dis_getConf(context);
}

void create_result_servers(VaContext *context)
{
    if (context->odEnable) {
        sck_svr_init(&context->odServer, va_od_path, od_client_buffer_size);
        sck_svr_init(&context->vmfServer, va_vmf_path, client_buffer_size);
    }
    if (context->fdEnable)
        sck_svr_init(&context->fdServer, va_fd_path, client_buffer_size);
    if (context->taEnable)
        sck_svr_init(&context->taServer, va_ta_path, client_buffer_size);
}

int start_control_server(VaContext *context)
{
    msg_conf conf{};
    std::snprintf(conf.path, sizeof conf.path, "%s", va_ctrl_path);
    if (msg_init(&context->msg, conf) == -1) {
        syslog(LOG_ERR, "Can't init msg!\n");
        return -1;
    }
    msg_register(context->msg, "reconfig", va_msg_reconfig, context);
    msg_start(context->msg);
    return 0;
}

} // namespace

int va_init(VaContext *context)
{
    dir_create(va_run_dir);
    conf_getSensorConfig(&context->sensorConf);
    context->wideAspect = is_wide(context->sensorConf);
    if (va_cl_init() != 0 || boot(context) != 0 || va_vana_init(context) != 0)
        return -1;
    read_settings(context);
    create_result_servers(context);
    return start_control_server(context);
}

int va_stop(VaContext *context)
{
    va_od_cancel(context);
    va_fd_cancel(context);
    va_ta_cancel(context);
    va_vana_quit(context);
    va_cl_stop();
    return 0;
}
