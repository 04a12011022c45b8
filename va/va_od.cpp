#include "va/va_od.h"

#include "va/log.h"
#include "va/module.h"
#include "va/od_control.h"
#include "va/od_print.h"
#include "va/options.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace
{

OdFrame frame_of(const VaContext &context)
{
    const SensorConfig &sensor = context.sensorConf;
    // At least one pixel, also of a context without a sensor.
    return {std::max(sensor.width, 1), std::max(sensor.height, 1), sensor.fps,
            context.wideAspect != 0};
}

// The settings of dynamic and static objects; returns whether one has changed.
bool refresh_objects(VaContext &context)
{
    bool changed = false;
    changed |=
        refresh(context.odDoParamInit, conf_getODDoParamInitConf, conf_compareODDoParamInitConf);
    changed |=
        refresh(context.odDoParamSet, conf_getODDoParamSetConf, conf_compareODDoParamSetConf);
    changed |=
        refresh(context.odSoParamInit, conf_getODSoParamInitConf, conf_compareODSoParamInitConf);
    changed |=
        refresh(context.odSoParamSet, conf_getODSoParamSetConf, conf_compareODSoParamSetConf);
    return changed;
}

// Writes a block into the library's memory, from where it takes effect.
template <class Block>
Block *attach(const ne3_val_area_mem &area, const Block &block)
{
    return static_cast<Block *>(std::memcpy(area.address, &block, sizeof block));
}

template <class Window, std::size_t Count>
ne3_val_od_masks *set_masks(const Window (&windows)[Count], const OdFrame &frame,
                            const ne3_val_area_mem &area,
                            void (*print)(int number, const ne3_val_od_polygon &mask))
{
    const ne3_val_od_masks block = od_masks(windows, frame);
    std::size_t slot = 0;
    for (std::size_t number = 0; number < Count; ++number) {
        if (windows[number].valid)
            print(static_cast<int>(number), block.masks[slot++]);
    }
    return block.maskNum > 0 ? attach(area, block) : nullptr;
}

template <class Init>
ne3_val_od_obj_init *set_init(const Init &conf, const ne3_val_area_mem &area,
                              void (*print)(const ne3_val_od_obj_init &block))
{
    if (!conf.valid)
        return nullptr;
    const ne3_val_od_obj_init block{static_cast<std::uint32_t>(conf.maxObjNum)};
    print(block);
    return attach(area, block);
}

ne3_val_od_obj_set *set_dynamic(const ODDoParamSetConf &conf, const OdFrame &frame,
                                const ne3_val_area_mem &area)
{
    if (!conf.valid)
        return nullptr;
    const auto [block, acceptable] = od_dynamic_set(conf, frame);
    conf_useODDoParamSetConf(acceptable ? nullptr
                                        : "threshold or sizes do not fit the detection grid");
    od_print_dynamic_set(block);
    auto *attached = attach(area, block);
    if (acceptable)
        return attached;
    log_error("Err: od dynamic object parameters are incorrect.");
    return nullptr;
}

ne3_val_od_obj_set *set_static(const ODSoParamSetConf &conf, const OdFrame &frame,
                               const ne3_val_area_mem &area)
{
    constexpr int message_line = 903; // part of the message's fixed text
    if (!conf.valid)
        return nullptr;
    const auto [block, acceptable] = od_static_set(conf, frame);
    conf_useStaticSizes(
        acceptable ? nullptr : "sizes do not fit the detection grid: the whole grid, and 2x2");
    if (!acceptable)
        log_error("%s,%d: Incorrect odSoParamSetConf parameters.", "va_od_set_ctrl", message_line);
    od_print_static_set(block);
    return attach(area, block);
}

ne3_val_od_vmf *set_vmf(const ODVmfParamConf &conf, const OdFrame &frame,
                        const ne3_val_area_mem &area)
{
    const ne3_val_od_vmf block = od_vmf(conf, frame);
    if (conf.valid)
        od_print_vmf(block);
    return attach(area, block);
}

void set_working(const ODCtrlConf &conf, const OdFrame &frame, ne3_val_od_ctrl &ctrl)
{
    constexpr std::uint16_t daemon_flags = 1 | 2 | 4;
    const OdWorking working = od_working(conf, frame);
    ctrl.resolution = working.resolution;
    ctrl.interval = working.interval;
    ctrl.diffImgNum = working.diffImgNum;
    ctrl.flags |= daemon_flags;
}

static_assert(CONF_EVENT_CODES == VMF_EVENT_CODES);
static_assert(CONF_VMF_FILTERS <= NE3_VAL_OD_FILTERS); // whose bits an alarm has
static_assert(OD_ENTRY_SIZE == NE3_VAL_OD_OBJECT_SIZE);

VmfRecord vmf_record(const ODVmfParamConf &conf, std::uint32_t flags)
{
    VmfRecord record{};
    for (int n = 0; n < std::min(conf.filterNum, CONF_VMF_FILTERS); ++n) {
        const std::int32_t event = conf.filters[n].event;
        assert(event >= 0 && event < CONF_EVENT_CODES);
        if (flags & 1U << n)
            record.alarms[event] |= 1U << conf_vmfBit(conf, n);
    }
    return record;
}

} // namespace

int va_od_getConf(VaContext *context)
{
    context->odEnable = gm_bOdEna;
    if (!context->odEnable)
        return 0;
    conf_getODCtrlConf(&context->odCtrl);
    for (int number = 0; number < CONF_OD_WINDOWS; ++number) {
        conf_getODMaskConf(&context->odMask[number], number);
        conf_getODDetMaskConf(&context->odDetMask[number], number);
    }
    refresh_objects(*context);
    conf_getODVmfParamConf(&context->odVmfParam);
    return 0;
}

int va_od_init(VaContext *context)
{
    static ne3_val_od_open_prm iniPrm;
    context->odOpened = 1;
    iniPrm = {4, 1, 0, 1};
    std::puts("init od.");
    const int handle = ne3_val_od_open_ex(&iniPrm, 1);
    if (handle == -1)
        return log_error("od_open failed.");
    if (ne3_val_od_start(handle) == -1)
        return log_error("ne3_val_od_start fail.");
    tell(context->report, &VaHealth::configures, VaModule::od, va_od_set_ctrl(context) == 0);
    return 0;
}

int va_od_set_ctrl(VaContext *context)
{
    std::uint16_t count = 0;
    ne3_val_od_area_table *areas = nullptr;
    if (ne3_val_od_get_area_data_mem(&count, &areas) == -1)
        return log_error("ne3_val_od_get_area_data_mem failed. errno = %X\n", errno);
    ne3_val_od_ctrl ctrl{};
    if (ne3_val_od_get_ctrl(&ctrl) == -1)
        return log_error("ne3_val_od_get_ctrl fail. errno=%X", errno);
    od_print_old(ctrl);

    const OdFrame frame = frame_of(*context);
    set_working(context->odCtrl, frame, ctrl);
    ctrl.nonDetMasks = set_masks(context->odMask, frame, areas->nonDetMasks, od_print_mask);
    ctrl.detMasks = set_masks(context->odDetMask, frame, areas->detMasks, od_print_det_mask);
    ctrl.doInit = set_init(context->odDoParamInit, areas->doInit, od_print_dynamic_init);
    ctrl.doSet = set_dynamic(context->odDoParamSet, frame, areas->doSet);
    ctrl.soInit = set_init(context->odSoParamInit, areas->soInit, od_print_static_init);
    ctrl.soSet = set_static(context->odSoParamSet, frame, areas->soSet);
    ctrl.vmf = set_vmf(context->odVmfParam, frame, areas->vmf);
    if (ne3_val_od_set_ctrl(&ctrl) == -1)
        return log_error("ne3_val_od_set_ctrl fail. errno = %X", errno);
    return 0;
}

int va_od_updateConfig(VaContext *context)
{
    // Kept current though object detection does not use them.
    for (int number = 0; number < CONF_MOTION_WINDOWS; ++number)
        conf_getMotionConfig(&context->motion[number], number);
    for (int number = 0; number < CONF_PRIVACY_MASKS; ++number)
        conf_getPrivacyMaskConfig(&context->privacyMask[number], number);

    bool changed = false;
    for (int number = 0; number < CONF_OD_WINDOWS; ++number)
        changed |= refresh(
            context->odMask[number],
            [=](ODMaskConf *conf) { return conf_getODMaskConf(conf, number); },
            conf_compareODMaskConf);
    changed |= refresh_objects(*context);
    changed |= refresh(context->odCtrl, conf_getODCtrlConf, conf_compareODCtrlConf);
    changed |= refresh(context->odVmfParam, conf_getODVmfParamConf, conf_compareODVmfParamConf);
    if (changed)
        tell(context->report, &VaHealth::configures, VaModule::od, va_od_set_ctrl(context) == 0);
    return 0;
}

int va_od_processData(VaContext *context, const ne3_val_od_result *result)
{
    constexpr std::int32_t suspicious_count = 1000;
    if (result->vmfAlarms != 0) {
        const VmfRecord record = vmf_record(context->odVmfParam, result->vmfAlarms);
        sck_svr_write(context->vmfServer, &record, sizeof record);
    }
    if (result->objects && result->objectNum > suspicious_count)
        std::puts("******************* err.");
    relay_entries(context->odServer, result->objects, result->objectNum, NE3_VAL_OD_OBJECT_SIZE);
    return 0;
}

Poll va_od_poll(VaContext *context)
{
    return poll(context, VaModule::od, ne3_val_od_get_data, "ne3_val_od_get_data",
                va_od_processData);
}

int va_od_cancel(VaContext *context)
{
    return va_cancel(context, ne3_val_od_cancel_data);
}
