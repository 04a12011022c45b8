#include "conf/conf_sensor.h"

#include "conf/sensor_tables.h"
#include "conf/store.h"
#include "platform/ne3_val.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <span>

#include <strings.h>

namespace
{

constexpr int pair_numbers = 2;

bool same_name(const char *a, const char *b)
{
    return strcasecmp(a, b) == 0;
}

bool fits_standard(std::int32_t any_standard, std::int32_t row_ntsc, std::int32_t ntsc)
{
    return any_standard || row_ntsc == ntsc;
}

std::optional<ConfSize> find_size(std::span<const va::NamedSize> sizes, const char *name)
{
    for (const va::NamedSize &entry : sizes) {
        if (same_name(entry.name, name))
            return entry.size;
    }
    return {};
}

std::optional<ConfSize> find_stream_size(const char *sensor, const char *mode,
                                         std::int32_t any_standard, std::int32_t ntsc,
                                         const char *name)
{
    for (const auto &row : va::sensor_resolution_table) {
        if (!same_name(row.sensor, sensor) || !same_name(row.profileMode, mode) ||
            !fits_standard(any_standard, row.ntsc, ntsc))
            continue;
        if (const auto found = find_size(row.sizes, name))
            return found;
    }
    return {};
}

// Entry `index` of a list that is a count followed by pairs.
ConfSize listed_size(const std::int32_t *list, std::int32_t index)
{
    const std::int32_t *pair = list + 1 + std::ptrdiff_t{pair_numbers} * index;
    return {pair[0], pair[1]};
}

ConfSize nearest_size(const std::int32_t *list, std::int32_t target)
{
    constexpr std::int64_t farthest = 10000;
    const auto distance = [=](ConfSize size) {
        return std::abs(std::int64_t{target} - size.width);
    };

    ConfSize nearest = listed_size(list, 0);
    std::int64_t best = std::min(distance(nearest), farthest);
    const std::int32_t count = *list;
    for (std::int32_t i = 1; i < count; ++i) {
        const ConfSize size = listed_size(list, i);
        if (distance(size) < best) {
            best = distance(size);
            nearest = size;
        }
    }
    return nearest;
}

int store_size(ConfSize size, std::int32_t *width, std::int32_t *height)
{
    *width = size.width;
    *height = size.height;
    return size.width && size.height ? 0 : -1;
}

} // namespace

int conf_getSensorConfig(SensorConfig *conf)
{
    va::KeyReader sensor_store;
    va::KeyReader type_store;
    va::KeyReader mode_store;
    const char *sensor = sensor_store.text("", "Properties.ImageSource.Sensor");
    const char *type = type_store.text("ntsc", "ImageSource.I0.Video.DetectedType");
    const char *mode = mode_store.text("2 MEGA", "Properties.Image.ProfileMode");

    const std::int32_t ntsc = !same_name(type, "pal");
    for (const SensorConfig &row : va::g_sensorConfigs) {
        if (same_name(row.sensor, sensor) && same_name(row.profileMode, mode) &&
            fits_standard(row.anyStandard, row.ntsc, ntsc)) {
            *conf = row;
            conf->ntsc = ntsc;
            return 0;
        }
    }
    std::fprintf(stderr, "Unknow sensor type [%s]!\n", sensor);
    return -1;
}

std::int32_t conf_isWideAspect(std::int32_t width, std::int32_t height)
{
    return ne3_val_is_wide(width, height);
}

int conf_compareSensorConfig(const SensorConfig *a, const SensorConfig *b)
{
    if (const int order = strcasecmp(a->sensor, b->sensor))
        return order;
    if (const int order = strcasecmp(a->profileMode, b->profileMode))
        return order;
    const bool same =
        a->fps == b->fps && a->ntsc == b->ntsc && a->width == b->width && a->height == b->height;
    return same ? 0 : -1;
}

int conf_parseResolution(const char *sensor, const char *mode, std::int32_t anyStandard,
                         std::int32_t ntsc, const char *text, std::int32_t *width,
                         std::int32_t *height)
{
    ConfSize size = {};
    if (va::parse_pair(text, size.width, size.height) < pair_numbers)
        size = find_stream_size(sensor, mode, anyStandard, ntsc, text).value_or(size);
    return store_size(size, width, height);
}

int guess_resolution(const std::int32_t *list, const char *text, std::int32_t *width,
                     std::int32_t *height)
{
    ConfSize size = {};
    if (va::parse_pair(text, size.width, size.height) < pair_numbers)
        size = nearest_size(list, find_size(va::all_resolution, text).value_or(ConfSize{}).width);
    return store_size(size, width, height);
}

int FrameBufferConf_Get(const char *sensor, FrameBufferConf *conf)
{
    va::KeyReader store;
    const std::int32_t count = store.number("-1", "MPoolMgr.BufferNum");
    for (const FrameBufferConf &row : va::gatFrameBufferConf) {
        if (!same_name(row.name, sensor))
            continue;
        *conf = row;
        if (count >= 1)
            conf->bufferNum = count;
        return 0;
    }
    return -1;
}
