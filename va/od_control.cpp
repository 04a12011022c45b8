#include "va/od_control.h"

#include "conf/conf.h"

#include <algorithm>
#include <cassert>

namespace
{

// What is read of each has a place in the block.
static_assert(CONF_OD_WINDOWS <= NE3_VAL_OD_MASKS);
static_assert(CONF_VMF_FILTERS <= NE3_VAL_OD_FILTERS);
static_assert(CONF_VMF_ND_AREAS <= NE3_VAL_OD_MASKS);
static_assert(CONF_POLYGON_POINTS <= NE3_VAL_OD_POLYGON_POINTS);
static_assert(sizeof(ODVmfParamConf::comboFilterIds) == sizeof(ne3_val_od_vmf::comboFilterIds) &&
              sizeof(ODVmfParamConf::reserved) == sizeof(ne3_val_od_vmf::reserved) &&
              sizeof(ODVmfParamConf::comboIntervals) == sizeof(ne3_val_od_vmf::comboIntervals));

constexpr std::int32_t highest_rate = 15; // detections per second

std::int64_t scale(std::int64_t value, std::int32_t factor, std::int32_t divisor)
{
    return value * factor / divisor;
}

std::uint16_t cells_across(std::int32_t pixels, const OdFrame &frame)
{
    return static_cast<std::uint16_t>(scale(pixels, NE3_VAL_OD_COLUMNS, frame.width));
}

std::uint16_t cells_down(std::int32_t pixels, const OdFrame &frame)
{
    return static_cast<std::uint16_t>(scale(pixels, frame.grid_height(), frame.height));
}

ne3_val_od_point to_pixels(const ConfPoint &point, const OdFrame &frame)
{
    constexpr std::int32_t full_scale = 10000;
    return {static_cast<std::int32_t>(scale(point.x, frame.width, full_scale)),
            static_cast<std::int32_t>(scale(point.y, frame.height, full_scale))};
}

// `Source` is any record with `pointNum` and `points`.
template <class Source>
void convert_points(const Source &source, const OdFrame &frame, ne3_val_od_point *points)
{
    assert(source.pointNum >= 0 && source.pointNum <= CONF_POLYGON_POINTS);
    for (std::int32_t j = 0; j < source.pointNum; ++j)
        points[j] = to_pixels(source.points[j], frame);
}

template <class Source>
ne3_val_od_polygon polygon(const Source &source, const OdFrame &frame)
{
    ne3_val_od_polygon result{};
    result.pointNum = static_cast<std::uint32_t>(source.pointNum);
    convert_points(source, frame, result.points);
    return result;
}

std::int32_t frame_interval(std::int32_t setting, std::int32_t fps)
{
    const std::int32_t interval = (5 - setting) * 8 / 5 + 1;
    if (interval < 1) // the slowest response: as few frames as the highest rate allows
        return std::max((fps + highest_rate - 1) / highest_rate, 1);
    return fps / interval > highest_rate ? fps / highest_rate : interval;
}

ne3_val_od_filter filter_block(const ODVmfFilterConf &conf, const OdFrame &frame)
{
    ne3_val_od_filter filter{};
    filter.event = static_cast<std::uint16_t>(conf.event);
    filter.pointNum = static_cast<std::uint16_t>(conf.pointNum);
    convert_points(conf, frame, filter.points);

    filter.objMinSizeX = cells_across(conf.objMinSizeX, frame);
    filter.objMaxSizeX = cells_across(conf.objMaxSizeX, frame);
    filter.objMinSizeY = cells_down(conf.objMinSizeY, frame);
    filter.objMaxSizeY = cells_down(conf.objMaxSizeY, frame);
    if (frame.wide)
        filter.objMaxSizeY = static_cast<std::uint16_t>(frame.grid_height());
    filter.objMinSizeX = std::max<std::uint16_t>(filter.objMinSizeX, 1);
    filter.objMinSizeY = std::max<std::uint16_t>(filter.objMinSizeY, 1);

    constexpr std::uint16_t any_speed = 4096;
    const auto speed = [](std::int32_t percent) {
        return static_cast<std::uint16_t>(scale(std::int64_t{percent} - 1, 160, 100));
    };
    filter.MinDv = speed(conf.slowSpeed);
    filter.MaxDv = speed(conf.fastSpeed);
    if (filter.MinDv > filter.MaxDv) {
        filter.MaxDv = any_speed;
        filter.MinDv = 0;
    }
    filter.movingDirection = conf.movingDirection;
    return filter;
}

} // namespace

OdWorking od_working(const ODCtrlConf &conf, const OdFrame &frame)
{
    if (!conf.valid)
        return {.resolution = 2, .interval = 2, .diffImgNum = 5};
    return {.resolution = static_cast<std::uint8_t>(conf.resolution),
            .interval = static_cast<std::uint8_t>(frame_interval(conf.interval, frame.fps)),
            .diffImgNum = conf.diffImgNum};
}

template <class Window>
ne3_val_od_masks od_masks(const Window (&windows)[CONF_OD_WINDOWS], const OdFrame &frame)
{
    ne3_val_od_masks block{};
    for (const Window &window : windows) {
        if (window.valid)
            block.masks[block.maskNum++] = polygon(window, frame);
    }
    return block;
}

template ne3_val_od_masks od_masks(const ODMaskConf (&)[CONF_OD_WINDOWS], const OdFrame &);
template ne3_val_od_masks od_masks(const ODDetMaskConf (&)[CONF_OD_WINDOWS], const OdFrame &);

OdObjectSet od_dynamic_set(const ODDoParamSetConf &conf, const OdFrame &frame)
{
    const std::int32_t grid_height = frame.grid_height();
    const std::int32_t threshold = (100 - conf.subth) * 40 / 100 + 10;
    const auto max_height = scale(conf.maxSizeY, grid_height, frame.height);
    const ne3_val_od_obj_set block{
        .value = threshold,
        .maxSizeX = cells_across(conf.maxSizeX, frame),
        .maxSizeY = static_cast<std::uint16_t>(std::min<std::int64_t>(max_height, grid_height)),
        .minSizeX = static_cast<std::uint16_t>(cells_across(conf.minSizeX, frame) + 2),
        .minSizeY = static_cast<std::uint16_t>(cells_down(conf.minSizeY, frame) + 2),
    };
    const bool acceptable = int_chk_range(block.maxSizeX, 2, NE3_VAL_OD_COLUMNS) &&
                            int_chk_range(block.maxSizeY, 2, grid_height) &&
                            int_chk_range(block.minSizeX, 2, block.maxSizeX) &&
                            int_chk_range(block.minSizeY, 2, block.maxSizeY) &&
                            int_chk_range(threshold, 0, 255);
    return {block, acceptable};
}

OdObjectSet od_static_set(const ODSoParamSetConf &conf, const OdFrame &frame)
{
    constexpr std::int32_t ms_per_second = 1000;
    const std::int32_t grid_height = frame.grid_height();
    ne3_val_od_obj_set block{
        .value = conf.soThTime * ms_per_second,
        .maxSizeX = static_cast<std::uint16_t>(conf.maxSizeX),
        .maxSizeY = static_cast<std::uint16_t>(std::min(conf.maxSizeY, grid_height)),
        .minSizeX = static_cast<std::uint16_t>(conf.minSizeX),
        .minSizeY = static_cast<std::uint16_t>(conf.minSizeY),
    };
    const bool acceptable = int_chk_range(block.maxSizeX, 3, NE3_VAL_OD_COLUMNS) &&
                            int_chk_range(block.maxSizeY, 3, grid_height) &&
                            int_chk_range(block.minSizeX, 2, block.maxSizeX - 1) &&
                            int_chk_range(block.minSizeY, 2, block.maxSizeY - 1);
    if (!acceptable) {
        block.maxSizeY = static_cast<std::uint16_t>(grid_height);
        block.minSizeX = 2;
        block.minSizeY = 2;
    }
    block.maxSizeX = NE3_VAL_OD_COLUMNS; // whatever is configured
    return {block, acceptable};
}

ne3_val_od_vmf od_vmf(const ODVmfParamConf &conf, const OdFrame &frame)
{
    ne3_val_od_vmf block{};
    if (!conf.valid)
        return block;
    block.filterNum = static_cast<std::uint16_t>(conf.filterNum);
    block.alarmTime = static_cast<std::uint16_t>(conf.alarmTime);
    for (int n = 0; n < std::min(conf.filterNum, NE3_VAL_OD_FILTERS); ++n)
        block.filters[n] = filter_block(conf.filters[n], frame);
    assert(conf.filterNum >= 0 && conf.filterNum <= CONF_VMF_FILTERS);
    assert(conf.ndAreaNum >= 0 && conf.ndAreaNum <= CONF_VMF_ND_AREAS);
    block.ndAreaNum = static_cast<std::uint32_t>(conf.ndAreaNum);
    for (int i = 0; i < conf.ndAreaNum; ++i)
        block.ndAreas[i] = polygon(conf.ndAreas[i], frame);
    block.comboValid = conf.comboValid;
    std::ranges::copy(conf.comboFilterIds, block.comboFilterIds);
    std::ranges::copy(conf.reserved, block.reserved);
    std::ranges::copy(conf.comboIntervals, block.comboIntervals);
    return block;
}
