#include "records/records.h"
#include "va/drivers.h"
#include "va/log.h"
#include "va/od_control.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <span>

namespace
{

using va::refresh;

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

std::span<const ne3_val_od_point> corners(const ne3_val_od_polygon &polygon)
{
    return {polygon.points, polygon.pointNum};
}

// Writes a block into the library's memory, from where it takes effect.
template <class Block>
Block *attach(const ne3_val_area_mem &area, const Block &block)
{
    return static_cast<Block *>(std::memcpy(area.address, &block, sizeof block));
}

template <class Window>
ne3_val_od_masks *set_masks(const Window (&windows)[CONF_OD_WINDOWS], const OdFrame &frame,
                            const ne3_val_area_mem &area, const char *name, const char *corner)
{
    const ne3_val_od_masks block = od_masks(windows, frame);
    const ne3_val_od_polygon *mask = block.masks;
    for (int number = 0; number < CONF_OD_WINDOWS; ++number) {
        if (!windows[number].valid)
            continue;
        std::printf("od set %s %d.\n", name, number);
        for (const auto &[x, y] : corners(*mask++))
            std::printf("%s pos %d,%d.\n", corner, x, y);
    }
    return block.maskNum > 0 ? attach(area, block) : nullptr;
}

// The first half of the lines of parameters has no end of its own.

template <class Init>
ne3_val_od_obj_init *set_init(const Init &conf, const ne3_val_area_mem &area, const char *text)
{
    if (!conf.valid)
        return nullptr;
    std::printf("%s = %d\n", text, conf.maxObjNum);
    return attach(area, ne3_val_od_obj_init{static_cast<std::uint32_t>(conf.maxObjNum)});
}

ne3_val_od_obj_set *set_dynamic(const ODDoParamSetConf &conf, const OdFrame &frame,
                                const ne3_val_area_mem &area)
{
    if (!conf.valid)
        return nullptr;
    const auto [block, acceptable] = od_dynamic_set(conf, frame);
    conf_useODDoParamSetConf(acceptable ? nullptr
                                        : "threshold or sizes do not fit the detection grid");
    std::printf("od: set odDoParamSet"
                "od do: subth=%ld,min_dim=%dx%d,max_dim=%dx%d\n",
                static_cast<long>(block.value), block.minSizeX, block.minSizeY, block.maxSizeX,
                block.maxSizeY);
    auto *attached = attach(area, block);
    if (acceptable)
        return attached;
    va::log_error("Err: od dynamic object parameters are incorrect.");
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
        va::log_error("%s,%d: Incorrect odSoParamSetConf parameters.", "va_od_set_ctrl",
                      message_line);
    std::printf("od: set odSoParamSet"
                "soParam:soThTime=%ld,minSizeX=%d,minSizeY=%d,maxSizeX=%d,maxSizeY=%d\n",
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

void print(const ne3_val_od_vmf &block)
{
    std::printf("od: setup vmf filter, num=%d, alarmTime=%d.\n", block.filterNum, block.alarmTime);
    for (int n = 0; n < std::min<int>(block.filterNum, NE3_VAL_OD_FILTERS); ++n)
        print_filter(n, block.filters[n]);
    for (std::uint32_t i = 0; i < block.ndAreaNum; ++i) {
        std::printf("setup no detect area %d\n", static_cast<int>(i));
        for (const auto &[x, y] : corners(block.ndAreas[i]))
            std::printf("(%d,%d)", x, y);
        std::printf("\n");
    }
    std::printf("combo filter = %ld\n", static_cast<long>(block.comboValid));
}

ne3_val_od_vmf *set_vmf(const ODVmfParamConf &conf, const OdFrame &frame,
                        const ne3_val_area_mem &area)
{
    const ne3_val_od_vmf block = od_vmf(conf, frame);
    if (conf.valid)
        print(block);
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
        return va::log_error("od_open failed.");
    if (ne3_val_od_start(handle) == -1)
        return va::log_error("ne3_val_od_start fail.");
    va::report(context->report, &VaHealth::configures, VaModule::Od, va_od_set_ctrl(context) == 0);
    return 0;
}

int va_od_set_ctrl(VaContext *context)
{
    std::uint16_t count = 0;
    ne3_val_od_area_table *areas = nullptr;
    if (ne3_val_od_get_area_data_mem(&count, &areas) == -1)
        return va::log_error("ne3_val_od_get_area_data_mem failed. errno = %X\n", errno);
    ne3_val_od_ctrl ctrl{};
    if (ne3_val_od_get_ctrl(&ctrl) == -1)
        return va::log_error("ne3_val_od_get_ctrl fail. errno=%X", errno);
    std::printf("od old prm: resolution=%d,interval=%d,diffImgNum=%ld\n", ctrl.resolution,
                ctrl.interval, static_cast<long>(ctrl.diffImgNum));

    const OdFrame frame = frame_of(*context);
    set_working(context->odCtrl, frame, ctrl);
    ctrl.nonDetMasks = set_masks(context->odMask, frame, areas->nonDetMasks, "mask", "mask");
    ctrl.detMasks = set_masks(context->odDetMask, frame, areas->detMasks, "det mask", "detect");
    ctrl.doInit = set_init(context->odDoParamInit, areas->doInit,
                           "od: set odDoParamInit"
                           "doMaxObjNum");
    ctrl.doSet = set_dynamic(context->odDoParamSet, frame, areas->doSet);
    ctrl.soInit = set_init(context->odSoParamInit, areas->soInit,
                           "od: set odSoParamInit"
                           "soMaxObjNum");
    ctrl.soSet = set_static(context->odSoParamSet, frame, areas->soSet);
    ctrl.vmf = set_vmf(context->odVmfParam, frame, areas->vmf);
    if (ne3_val_od_set_ctrl(&ctrl) == -1)
        return va::log_error("ne3_val_od_set_ctrl fail. errno = %X", errno);
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
        va::report(context->report, &VaHealth::configures, VaModule::Od,
                   va_od_set_ctrl(context) == 0);
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
    va::relay_entries(context->odServer, result->objects, result->objectNum,
                      NE3_VAL_OD_OBJECT_SIZE);
    return 0;
}

int va_od_cancel(VaContext *context)
{
    return va_cancel(context, ne3_val_od_cancel_data);
}
