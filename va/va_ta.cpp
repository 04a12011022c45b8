#include "va/drivers.h"
#include "va/log.h"

#include <cerrno>
#include <cstdint>

namespace
{

constexpr int ctrl_prm = 1; // the library's; always 1

// Overwrites what the settings decide; each value is cut to the library's width.
void apply(const TACtrlConf &conf, ne3_val_ta_ctrl &ctrl)
{
    ctrl.dfAlarmMethod = static_cast<std::uint16_t>(conf.dfAlarmMethod);
    ctrl.dfAlarmTime = static_cast<std::uint16_t>(conf.dfAlarmTime);
    ctrl.gcRegionSens = static_cast<std::uint8_t>(conf.gcRegionSens);
    ctrl.gcAreaRate = static_cast<std::uint8_t>(conf.gcAreaRate);
    ctrl.gcWaitTime = static_cast<std::uint16_t>(conf.gcWaitTime);
    ctrl.gcAlarmShape = static_cast<std::uint16_t>(conf.gcAlarmShape);
    ctrl.reserved = 0;
    ctrl.dfThreshold = static_cast<std::uint16_t>(conf.dfThreshold);
    ctrl.dfPixelRate = static_cast<std::uint8_t>(conf.dfPixelRate);
    ctrl.dfAreaRate = static_cast<std::uint8_t>(conf.dfAreaRate);
    ctrl.dfRepeatTh = static_cast<std::uint16_t>(conf.dfRepeatTh);
    ctrl.dfAlarmShape = static_cast<std::uint16_t>(conf.dfAlarmShape);
}

} // namespace

int va_ta_getConf(VaContext *context)
{
    conf_getTACtrlConf(&context->taCtrl);
    context->taEnable = gm_bTaEna;
    return 0;
}

int va_ta_init(VaContext *context)
{
    std::puts("init ta");
    const ne3_val_open_prm taOpenPrm{1, 1, 0};
    if (ne3_val_ta_open(&taOpenPrm) == -1)
        return va::log_error("ta_open failed.\n");
    if (ne3_val_ta_start() == -1)
        return va::log_error("start failed.\n");
    va::report(context->report, &VaHealth::configures, VaModule::Ta, va_ta_set_ctrl(context) == 0);
    return 0;
}

int va_ta_set_ctrl(VaContext *context)
{
    ne3_val_ta_ctrl taCtrlPrm{};
    if (ne3_val_ta_get_ctrl_ex(&taCtrlPrm, ctrl_prm) == -1)
        return va::log_error("ne3_val_ta_get_ctrl fail. errno = %X", errno);
    apply(context->taCtrl, taCtrlPrm);
    if (ne3_val_ta_set_ctrl_ex(&taCtrlPrm, ctrl_prm) == -1)
        return va::log_error("ne3_val_ta_set_ctrls fail. errno = %X", errno);
    return 0;
}

int va_ta_updateConfig(VaContext *context)
{
    if (va::refresh(context->taCtrl, conf_getTACtrlConf, conf_compareTACtrlConf))
        va::report(context->report, &VaHealth::configures, VaModule::Ta,
                   va_ta_set_ctrl(context) == 0);
    return 0;
}

int va_ta_processData(VaContext *context, const ne3_val_ta_result *result)
{
    sck_svr_write(context->taServer, result->alarm, sizeof result->alarm);
    return 0;
}

int va_ta_cancel(VaContext *context)
{
    return va_cancel(context, ne3_val_ta_cancel_data);
}
