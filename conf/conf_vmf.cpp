#include "conf/conf_vmf.h"

#include "conf/store.h"

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <cstring>
#include <span>

namespace
{

constexpr EdgeKeys area_keys = {"ObjectDetection.O%d.Left", "ObjectDetection.O%d.Right",
                                "ObjectDetection.O%d.Top", "ObjectDetection.O%d.Bottom"};

constexpr struct {
    Key start_x;
    Key start_y;
    Key end_x;
    Key end_y;
} line_keys = {"CrossLine.C%d.StartX", "CrossLine.C%d.StartY", "CrossLine.C%d.EndX",
               "CrossLine.C%d.EndY"};

constexpr Key chain_key = "VideoAnalytics.OD.VmfParam.ComboFilter.FilterID";

// What areas and lines have in common, but for the name of one field.
struct LimitKeys {
    Key slow_speed;
    Key fast_speed;
    Key min_size;
    Key max_size;
};

template <class Source>
void read_limits(Source &source, RecordReader &store, const LimitKeys &keys, int n)
{
    source.slowSpeed = store.number("1", keys.slow_speed, n);
    source.fastSpeed = store.number("100", keys.fast_speed, n);
    const ConfSize min = read_size(store, "1x1", keys.min_size, n, {1, 1});
    const ConfSize max = read_size(store, "1920x1080", keys.max_size, n, {1920, 1080});
    source.minInspectionWidth = min.width;
    source.minInspectionHeight = min.height;
    source.maxInspectionWidth = max.width;
    source.maxInspectionHeight = max.height;
}

template <class Source>
ODVmfFilterConf make_filter(const Source &source, std::int32_t event, std::int32_t direction)
{
    ODVmfFilterConf filter = {};
    if (!source.valid)
        return filter;
    filter.event = event;
    filter.pointNum = source.pointNum;
    std::copy_n(source.points, std::min(source.pointNum, CONF_POLYGON_POINTS), filter.points);
    filter.objMinSizeX = source.minInspectionWidth;
    filter.objMaxSizeX = source.maxInspectionWidth;
    filter.objMinSizeY = source.minInspectionHeight;
    filter.objMaxSizeY = source.maxInspectionHeight;
    filter.slowSpeed = source.slowSpeed;
    filter.fastSpeed = source.fastSpeed;
    filter.movingDirection = direction;
    return filter;
}

std::int32_t area_event(std::int32_t type)
{
    switch (type) {
    case 1:
        return CONF_EVENT_AREA_1;
    case 2:
        return CONF_EVENT_AREA_2;
    default:
        return CONF_EVENT_AREA_0;
    }
}

struct Sources {
    CrossLineConf lines[CONF_CROSS_LINES];
    ObjectDetectionConf areas[CONF_OD_AREAS];
};

template <class ReadLine>
Sources read_sources(ReadLine read_line)
{
    static_assert(CONF_OD_AREAS == CONF_CROSS_LINES);
    Sources sources;
    for (int n = 0; n < CONF_OD_AREAS; ++n) {
        read_line(&sources.lines[n], n);
        conf_getObjectDetectionConf(&sources.areas[n], n);
    }
    return sources;
}

// Lines come before areas, each kind by its number, as long as there is room.
VmfSlots fill_filters(ODVmfParamConf &conf, const Sources &sources)
{
    VmfSlots slots{};
    const auto add = [&](VmfSource kind, const auto &kind_sources, auto convert, Key key) {
        for (int n = 0; n < static_cast<int>(std::size(kind_sources)); ++n) {
            if (!kind_sources[n].valid)
                continue;
            if (conf.filterNum == CONF_VMF_FILTERS) {
                leave_out_with(key, n, "no filter left: three lines and areas at the most");
                continue;
            }
            const int filter = conf.filterNum++;
            convert(&conf.filters[filter], &kind_sources[n]);
            const VmfSlot slot{kind, n, conf.filters[filter].event, conf_vmfBit(conf, filter)};
            slots.slots[static_cast<std::size_t>(filter)] = slot;
            note_filter(filter, key, n, slot.event, slot.bit);
        }
    };
    add(VmfSource::Line, sources.lines, conf_convCrossLineConf2ODVmfFilterConf, line_keys.start_x);
    add(VmfSource::Area, sources.areas, conf_convObjectDetectionConf2ODVmfFilterConf,
        area_keys.left);
    slots.count = conf.filterNum;
    conf_noteFilterNum(slots.count);
    return slots;
}

void read_nd_areas(ODVmfParamConf &conf)
{
    for (int n = 0; n < CONF_VMF_ND_AREAS; ++n) {
        ODVmfNdAreaConf &area = conf.ndAreas[conf.ndAreaNum];
        conf_readODVmfNdAreaConf(&area, n);
        if (area.pointNum)
            ++conf.ndAreaNum;
    }
}

// Passes the numbers of a comma-separated list on until `take` returns false.
template <class Take>
void for_each_number(const char *text, Take take)
{
    while (text && take(parse_number(text))) {
        text = std::strchr(text, ',');
        if (text)
            ++text;
    }
}

// Both list readers return how many items were accepted and clear comboValid at a bad one.
int read_combo_ids(ODVmfParamConf &conf, RecordReader &store)
{
    const std::span ids(conf.comboFilterIds);
    std::size_t count = 0;
    std::ranges::fill(ids, -1);
    for_each_number(store.text("", chain_key), [&](std::int32_t id) {
        const auto taken = ids.first(count);
        const bool fits = int_chk_range(id, 0, CONF_VMF_FILTERS - 1);
        const bool repeated = std::ranges::find(taken, id) != taken.end();
        if (fits)
            ids[count] = id;
        if (!fits || repeated) {
            conf.comboValid = 0;
            return false;
        }
        return ++count < ids.size();
    });
    return static_cast<int>(count);
}

int read_combo_intervals(ODVmfParamConf &conf, RecordReader &store)
{
    constexpr std::int32_t max_interval = 600000;
    const std::span intervals(conf.comboIntervals);
    std::size_t count = 0;
    for_each_number(store.text("0", "VideoAnalytics.OD.VmfParam.ComboFilter.Interval"),
                    [&](std::int32_t interval) {
                        if (!int_chk_range(interval, 0, max_interval)) {
                            conf.comboValid = 0;
                            return false;
                        }
                        intervals[count] = interval;
                        return ++count < intervals.size();
                    });
    return static_cast<int>(count);
}

void read_combo(ODVmfParamConf &conf, RecordReader &store)
{
    conf.comboValid = 1;
    const int ids = read_combo_ids(conf, store);
    const int intervals = read_combo_intervals(conf, store);
    if (intervals != ids - 1)
        conf.comboValid = 0;
    if (!conf.comboValid)
        leave_out_with(chain_key, 0, "no chain: two or three filters, one interval fewer");
}

} // namespace

int conf_getObjectDetectionConf(ObjectDetectionConf *conf, int n)
{
    static constexpr LimitKeys limit_keys = {
        "ObjectDetection.O%d.SlowSpeed", "ObjectDetection.O%d.FastSpeed",
        "ObjectDetection.O%d.MinInspectionSize", "ObjectDetection.O%d.MaxInspectionSize"};
    RecordReader store;
    *conf = {};
    const Edges edges = read_edges(store, area_keys, n);
    const std::int32_t type = store.number("-1", "ObjectDetection.O%d.Type", n);
    read_limits(*conf, store, limit_keys, n);
    conf->pointNum = store_corners(edges, max_coordinate, conf->points);
    if (!conf->pointNum) {
        leave_out_with(area_keys.left, n, no_window);
        return 0;
    }
    conf->valid = 1;
    conf->type = type;
    return 0;
}

void conf_readCrossLineConf(CrossLineConf *conf, int n)
{
    static constexpr LimitKeys limit_keys = {"CrossLine.C%d.SlowSpeed", "CrossLine.C%d.FastSpeed",
                                             "CrossLine.C%d.MinInspectionSize",
                                             "CrossLine.C%d.MaxInspectionSize"};
    RecordReader store;
    *conf = {};
    ConfPoint start;
    ConfPoint end;
    start.x = store.number("-1", line_keys.start_x, n);
    start.y = store.number("-1", line_keys.start_y, n);
    end.x = store.number("-1", line_keys.end_x, n);
    end.y = store.number("-1", line_keys.end_y, n);
    const std::int32_t direction = store.number("-1", "CrossLine.C%d.Direction", n);
    read_limits(*conf, store, limit_keys, n);
    if (!all_in_range({start.x, start.y, end.x, end.y}, 0, max_coordinate)) {
        leave_out_with(line_keys.start_x, n, "no line: two points with places of 0 to 9999");
        return;
    }
    conf->valid = 1;
    conf->points[conf->pointNum++] = start;
    conf->points[conf->pointNum++] = end;
    conf->direction = direction;
}

int conf_getCrossLineConf(CrossLineConf *conf, int n)
{
    conf_readCrossLineConf(conf, n);
    const ConfPoint &start = conf->points[0];
    const ConfPoint &end = conf->points[1];
    if (conf->valid)
        std::printf("cross line start (%d,%d), end (%d,%d)\n", start.x, start.y, end.x, end.y);
    return 0;
}

void conf_readODVmfNdAreaConf(ODVmfNdAreaConf *conf, int n)
{
    static constexpr EdgeKeys keys = {
        "VideoAnalytics.OD.VmfParam.NdArea%d.Left", "VideoAnalytics.OD.VmfParam.NdArea%d.Right",
        "VideoAnalytics.OD.VmfParam.NdArea%d.Top", "VideoAnalytics.OD.VmfParam.NdArea%d.Bottom"};
    constexpr std::int32_t max_nd_coordinate = 10000; // one more than other windows have
    RecordReader store;
    *conf = {};
    conf->pointNum = store_corners(read_edges(store, keys, n), max_nd_coordinate, conf->points);
    if (!conf->pointNum)
        leave_out_with(keys.left, n, "no window: four places of 0 to 10000 that enclose an area");
}

int conf_convObjectDetectionConf2ODVmfFilterConf(ODVmfFilterConf *filter,
                                                 const ObjectDetectionConf *area)
{
    *filter = make_filter(*area, area_event(area->type), 0);
    return 0;
}

int conf_convCrossLineConf2ODVmfFilterConf(ODVmfFilterConf *filter, const CrossLineConf *line)
{
    *filter = make_filter(*line, CONF_EVENT_CROSS_LINE, line->direction);
    return 0;
}

int conf_getODVmfParamConf(ODVmfParamConf *conf)
{
    *conf = {};
    fill_filters(*conf, read_sources(conf_getCrossLineConf));
    conf->valid = conf->filterNum > 0;
    RecordReader store;
    conf->alarmTime = store.number("30", "VideoAnalytics.OD.VmfParam.AlarmTimes");
    read_nd_areas(*conf);
    read_combo(*conf, store);
    return 0;
}

int conf_getVmfSlots(VmfSlots *slots)
{
    ODVmfParamConf conf{};
    *slots = fill_filters(conf, read_sources(conf_readCrossLineConf));
    return 0;
}

int conf_vmfBit(const ODVmfParamConf &conf, int n)
{
    assert(n >= 0 && n < conf.filterNum && n < CONF_VMF_FILTERS);
    const std::span before(conf.filters, static_cast<std::size_t>(n));
    return static_cast<int>(
        std::ranges::count(before, conf.filters[n].event, &ODVmfFilterConf::event));
}
