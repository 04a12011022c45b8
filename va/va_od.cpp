#include "va/va_od.h"

#include "va/module.h"
#include "va/od_control.h"
#include "va/options.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <syslog.h>

namespace
{

OdFrame frame_of(const VaContext &context)
{
    const SensorConfig &sensor = context.sensorConf;
    return {sensor.width, sensor.height, sensor.fps, context.wideAspect != 0};
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

// What a kind of window is called in the lines printed.
struct MaskWords {
    const char *window;
    const char *point;
};

template <class Window, std::size_t Count>
ne3_val_od_masks *set_masks(const Window (&windows)[Count], const OdFrame &frame,
                            const ne3_val_area_mem &area, const MaskWords &words)
{
    const ne3_val_od_masks block = od_masks(windows, frame);
    std::size_t slot = 0;
    for (std::size_t number = 0; number < Count; ++number) {
        if (!windows[number].valid)
            continue;
        std::printf("od set %s %d.\n", words.window, static_cast<int>(number));
        const ne3_val_od_polygon &mask = block.masks[slot++];
        for (std::uint32_t j = 0; j < mask.pointNum; ++j)
            std::printf("%s pos %d,%d.\n", words.point, mask.points[j].x, mask.points[j].y);
    }
    return block.maskNum > 0 ? attach(area, block) : nullptr;
}

// What a kind of object is called in the lines printed.
struct ObjectWords {
    const char *record;
    const char *count;
};

template <class Init>
ne3_val_od_obj_init *set_init(const Init &conf, const ne3_val_area_mem &area,
                              const ObjectWords &words)
{
    if (!conf.valid)
        return nullptr;
    std::printf("od: set od%sParamInit", words.record);
    auto *attached = attach(area, ne3_val_od_obj_init{static_cast<std::uint32_t>(conf.maxObjNum)});
    std::printf("%sMaxObjNum = %d\n", words.count, conf.maxObjNum);
    return attached;
}

ne3_val_od_obj_set *set_dynamic(const ODDoParamSetConf &conf, const OdFrame &frame,
                                const ne3_val_area_mem &area)
{
    if (!conf.valid)
        return nullptr;
    std::printf("od: set odDoParamSet");
    const auto [block, acceptable] = od_dynamic_set(conf, frame);
    std::printf("od do: subth=%ld,min_dim=%dx%d,max_dim=%dx%d\n", static_cast<long>(block.value),
                block.minSizeX, block.minSizeY, block.maxSizeX, block.maxSizeY);
    auto *attached = attach(area, block);
    if (acceptable)
        return attached;
    syslog(LOG_ERR, "Err: od dynamic object parameters are incorrect.");
    return nullptr;
}

ne3_val_od_obj_set *set_static(const ODSoParamSetConf &conf, const OdFrame &frame,
                               const ne3_val_area_mem &area)
{
    constexpr int message_line = 903; // part of the message's fixed text
    if (!conf.valid)
        return nullptr;
    std::printf("od: set odSoParamSet");
    const auto [block, acceptable] = od_static_set(conf, frame);
    if (!acceptable)
        syslog(LOG_ERR, "%s,%d: Incorrect odSoParamSetConf parameters.", "va_od_set_ctrl",
               message_line);
    std::printf("soParam:soThTime=%ld,minSizeX=%d,minSizeY=%d,maxSizeX=%d,maxSizeY=%d\n",
                static_cast<long>(block.value), block.minSizeX, block.minSizeY, block.maxSizeX,
                block.maxSizeY);
    return attach(area, block);
}

void print_filter(int number, const ne3_val_od_filter &filter)
{
    for (int j = 0; j < filter.pointNum; ++j)
        std::printf("filter_%d. node[%d] point (%ld,%ld)\n", number, j,
                    static_cast<long>(filter.points[j].x), static_cast<long>(filter.points[j].y));
    std::printf("event=%d,objMinSizeX=%d,objMinSizeY=%d,objMaxSizeX=%d,objMaxSizeY=%d,"
                "MinDv=%d,MaxDv=%d,movingDirection=%ld\n",
                filter.event, filter.objMinSizeX, filter.objMinSizeY, filter.objMaxSizeX,
                filter.objMaxSizeY, filter.MinDv, filter.MaxDv,
                static_cast<long>(filter.movingDirection));
}

void print_vmf(const ne3_val_od_vmf &block)
{
    std::printf("od: setup vmf filter, num=%d, alarmTime=%d.\n", block.filterNum, block.alarmTime);
    for (int n = 0; n < std::min<int>(block.filterNum, NE3_VAL_OD_FILTERS); ++n)
        print_filter(n, block.filters[n]);
    for (std::uint32_t i = 0; i < block.ndAreaNum; ++i) {
        const ne3_val_od_polygon &area = block.ndAreas[i];
        std::printf("setup no detect area %d\n", static_cast<int>(i));
        for (std::uint32_t j = 0; j < area.pointNum; ++j)
            std::printf("(%d,%d)", area.points[j].x, area.points[j].y);
        std::printf("\n");
    }
    std::printf("combo filter = %ld\n", static_cast<long>(block.comboValid));
}

ne3_val_od_vmf *set_vmf(const ODVmfParamConf &conf, const OdFrame &frame,
                        const ne3_val_area_mem &area)
{
    const ne3_val_od_vmf block = od_vmf(conf, frame);
    if (conf.valid)
        print_vmf(block);
    return attach(area, block);
}

// The limits that will not be sent as they were read.
void leave_out_unfit(const VaContext &context)
{
    const OdFrame frame = frame_of(context);
    if (context.odDoParamSet.valid && !od_dynamic_set(context.odDoParamSet, frame).acceptable)
        conf_leaveOutODDoParamSetConf("threshold or sizes do not fit the detection grid");
    if (context.odSoParamSet.valid && !od_static_set(context.odSoParamSet, frame).acceptable)
        conf_leaveOutStaticSizes("sizes do not fit the detection grid: the whole grid, and 2x2");
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

VmfRecord vmf_record(const ODVmfParamConf &conf, std::uint32_t flags)
{
    VmfRecord record{};
    for (int n = 0; n < std::min(conf.filterNum, CONF_VMF_FILTERS); ++n) {
        if (flags & 1U << n)
            record.alarms[conf.filters[n].event] |= 1U << conf_vmfBit(conf, n);
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
    leave_out_unfit(*context);
    return 0;
}

int va_od_init(VaContext *context)
{
    static ne3_val_od_open_prm iniPrm;
    context->odOpened = 1;
    iniPrm = {4, 1, 0, 1};
    std::puts("init od.");
    const int handle = ne3_val_od_open_ex(&iniPrm, 1);
    if (handle == -1) {
        syslog(LOG_ERR, "od_open failed.");
        return -1;
    }
    if (ne3_val_od_start(handle) == -1) {
        syslog(LOG_ERR, "ne3_val_od_start fail.");
        return -1;
    }
    context->health.configures(VaModule::od, va_od_set_ctrl(context) == 0);
    return 0;
}

int va_od_set_ctrl(VaContext *context)
{
    std::uint16_t count = 0;
    ne3_val_od_area_table *areas = nullptr;
    if (ne3_val_od_get_area_data_mem(&count, &areas) == -1)
        return log_failure("ne3_val_od_get_area_data_mem failed. errno = ", "\n");
    ne3_val_od_ctrl ctrl{};
    if (ne3_val_od_get_ctrl(&ctrl) == -1)
        return log_failure("ne3_val_od_get_ctrl fail. errno=");
    std::printf("od old prm: resolution=%d,interval=%d,diffImgNum=%ld\n", ctrl.resolution,
                ctrl.interval, static_cast<long>(ctrl.diffImgNum));

    const OdFrame frame = frame_of(*context);
    set_working(context->odCtrl, frame, ctrl);
    ctrl.nonDetMasks = set_masks(context->odMask, frame, areas->nonDetMasks, {"mask", "mask"});
    ctrl.detMasks = set_masks(context->odDetMask, frame, areas->detMasks, {"det mask", "detect"});
    ctrl.doInit = set_init(context->odDoParamInit, areas->doInit, {"Do", "do"});
    ctrl.doSet = set_dynamic(context->odDoParamSet, frame, areas->doSet);
    ctrl.soInit = set_init(context->odSoParamInit, areas->soInit, {"So", "so"});
    ctrl.soSet = set_static(context->odSoParamSet, frame, areas->soSet);
    ctrl.vmf = set_vmf(context->odVmfParam, frame, areas->vmf);
    if (ne3_val_od_set_ctrl(&ctrl) == -1)
        return log_failure("ne3_val_od_set_ctrl fail. errno = ");
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
    leave_out_unfit(*context);
    if (changed)
        context->health.configures(VaModule::od, va_od_set_ctrl(context) == 0);
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
