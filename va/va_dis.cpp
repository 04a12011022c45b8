#include "va/drivers.h"
#include "va/log.h"

#include <cstdint>
#include <cstdio>

namespace
{

// Overwrites what the settings decide; each value is cut to the library's width.
void apply(const DISCtrlConf &conf, ne3_val_dis_ctrl &ctrl)
{
    ctrl.localmot_det = static_cast<std::uint8_t>(conf.localmot_det);
    ctrl.illumch_det = static_cast<std::uint8_t>(conf.illumch_det);
    ctrl.edge_det = static_cast<std::uint8_t>(conf.edge_det);
    ctrl.motpow_det = static_cast<std::uint8_t>(conf.motpow_det);
    ctrl.mf_cutf = static_cast<std::uint16_t>(conf.mf_cutf);
    ctrl.disValidCnt = static_cast<std::uint8_t>(conf.disValidCnt);
    ctrl.frdiff_det = static_cast<std::uint8_t>(conf.frdiff_det);
    ctrl.me_disable = static_cast<std::uint8_t>(conf.me_disable);
}

void print(const ne3_val_dis_ctrl &tPrm)
{
    const struct {
        const char *label;
        int value;
    } parameters[] = {
        {"tPrm.status", tPrm.status},           {"tPrm.localmot_det", tPrm.localmot_det},
        {"tPrm.illumch_det", tPrm.illumch_det}, {"tPrm.edge_det", tPrm.edge_det},
        {"tPrm.motpow_det", tPrm.motpow_det},   {"tPrm.mf_cutf", tPrm.mf_cutf},
        {"tPrm.disValidCnt", tPrm.disValidCnt}, {"tPrm.frdiff_det", tPrm.frdiff_det},
        {"tPrm.me_disable", tPrm.me_disable},
    };
    for (const auto &parameter : parameters)
        std::printf("==>%s,%d:%s: %d\n", "va_dis_set_ctrl", __LINE__, parameter.label,
                    parameter.value);
}

// Whether the library has taken them.
bool set_ctrl(const DISCtrlConf &conf)
{
    ne3_val_dis_ctrl tPrm{};
    if (ne3_val_dis_get_ctrl(&tPrm) == -1)
        return false;
    print(tPrm);
    apply(conf, tPrm);
    print(tPrm);
    if (ne3_val_dis_set_ctrl(&tPrm) == 0)
        return true;
    va::log_error("ne3_val_dis_set_ctrl fail.");
    return false;
}

} // namespace

int va_dis_getConf(VaContext *context)
{
    context->disEnable = gm_bDisEna;
    conf_getDISCtrlConf(&context->disCtrl);
    return 0;
}

int va_dis_init(VaContext *context)
{
    if (ne3_val_dis_open() == -1)
        return va::log_error("dis_open failed.\n");
    if (ne3_val_dis_start() == -1)
        return va::log_error("dis_start failed.\n");
    va_dis_set_ctrl(context);
    return 0;
}

void va_dis_set_ctrl(VaContext *context)
{
    va::report(context->report, &VaHealth::configures, VaModule::Dis, set_ctrl(context->disCtrl));
}
