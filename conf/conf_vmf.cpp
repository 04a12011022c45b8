#include "conf/conf_vmf.h"

#include "conf/store.h"

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <cstring>
#include <span>

namespace
{

constexpr const char *area_item = "ObjectDetection.O";
constexpr const char *line_item = "CrossLine.C";

// What areas and lines have in common, but for the name of one field.
template <class Source>
void read_limits(Source &source, va::RecordReader &store)
{
    source.slowSpeed = store.number("1", "SlowSpeed");
    source.fastSpeed = store.number("100", "FastSpeed");
    store.size("1x1", "MinInspectionSize", {1, 1}, source.minInspectionWidth,
               source.minInspectionHeight);
    store.size("1920x1080", "MaxInspectionSize", {1920, 1080}, source.maxInspectionWidth,
               source.maxInspectionHeight);
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

Sources read_sources()
{
    static_assert(CONF_OD_AREAS == CONF_CROSS_LINES);
    Sources sources;
    for (int n = 0; n < CONF_OD_AREAS; ++n) {
        conf_getCrossLineConf(&sources.lines[n], n);
        conf_getObjectDetectionConf(&sources.areas[n], n);
    }
    return sources;
}

// Adds the filters of the valid lines or areas, in the order of their numbers, until there are
// three.
template <class Source, std::size_t Count>
void add_filters(ODVmfParamConf &conf, const Source (&sources)[Count], const char *item,
                 int (*convert)(ODVmfFilterConf *, const Source *))
{
    for (int n = 0; n < static_cast<int>(Count); ++n) {
        if (!sources[n].valid)
            continue;
        va::RecordReader store(item, n);
        if (conf.filterNum == CONF_VMF_FILTERS) {
            store.reject("no filter left: three lines and areas at the most");
            continue;
        }
        const int filter = conf.filterNum++;
        convert(&conf.filters[filter], &sources[n]);
        store.became_filter(filter, conf.filters[filter].event, conf_vmfBit(conf, filter));
    }
}

// Lines come before areas.
void read_filters(ODVmfParamConf &conf)
{
    const Sources sources = read_sources();
    add_filters(conf, sources.lines, line_item, conf_convCrossLineConf2ODVmfFilterConf);
    add_filters(conf, sources.areas, area_item, conf_convObjectDetectionConf2ODVmfFilterConf);
    ConfReport().filter_count(conf.filterNum);
    conf.valid = conf.filterNum > 0;
}

void read_nd_areas(ODVmfParamConf &conf)
{
    constexpr std::int32_t max_nd_coordinate = 10000; // one more than other windows have
    for (int n = 0; n < CONF_VMF_ND_AREAS; ++n) {
        va::RecordReader store("VideoAnalytics.OD.VmfParam.NdArea", n);
        ODVmfNdAreaConf &area = conf.ndAreas[conf.ndAreaNum];
        area.pointNum =
            va::store_corners(store, va::read_edges(store), max_nd_coordinate, area.points);
        if (area.pointNum)
            ++conf.ndAreaNum;
    }
}

// Stores the numbers of a comma-separated list, as many as there are slots. Returns how many it
// stored; -1 after one that is not in 0..max or, where they have to be distinct, is stored twice.
int read_list(const char *text, std::span<std::int32_t> slots, std::int32_t max, bool distinct)
{
    std::size_t count = 0;
    for (std::int32_t &slot : slots) {
        const std::int32_t number = va::parse_number(text);
        if (!int_chk_range(number, 0, max))
            return -1;
        const auto before = slots.first(count);
        slot = number;
        if (distinct && std::ranges::count(before, number))
            return -1;
        ++count;
        text = std::strchr(text, ',');
        if (!text)
            break;
        ++text;
    }
    return static_cast<int>(count);
}

void read_combo(ODVmfParamConf &conf)
{
    constexpr std::int32_t max_interval = 600000;
    va::RecordReader store("VideoAnalytics.OD.VmfParam.ComboFilter.");
    std::ranges::fill(conf.comboFilterIds, -1);
    const int ids =
        read_list(store.text("", "FilterID"), conf.comboFilterIds, CONF_VMF_FILTERS - 1, true);
    const int intervals =
        read_list(store.text("0", "Interval"), conf.comboIntervals, max_interval, false);
    conf.comboValid = ids > 0 && intervals == ids - 1;
    if (!conf.comboValid)
        store.reject("no chain: two or three filters, one interval fewer");
}

} // namespace

int conf_getObjectDetectionConf(ObjectDetectionConf *conf, int n)
{
    va::RecordReader store(area_item, n);
    *conf = {};
    const va::Edges edges = va::read_edges(store);
    const std::int32_t type = store.number("-1", "Type");
    read_limits(*conf, store);
    conf->pointNum = va::store_corners(store, edges, va::max_coordinate, conf->points);
    if (conf->pointNum) {
        conf->valid = 1;
        conf->type = type;
    }
    return 0;
}

int conf_getCrossLineConf(CrossLineConf *conf, int n)
{
    va::RecordReader store(line_item, n);
    *conf = {};
    ConfPoint start;
    ConfPoint end;
    start.x = store.number("-1", "StartX");
    start.y = store.number("-1", "StartY");
    end.x = store.number("-1", "EndX");
    end.y = store.number("-1", "EndY");
    const std::int32_t direction = store.number("-1", "Direction");
    read_limits(*conf, store);
    if (!va::all_in_range({start.x, start.y, end.x, end.y}, 0, va::max_coordinate)) {
        store.reject("no line: two points with places of 0 to 9999");
        return 0;
    }
    conf->valid = 1;
    conf->points[conf->pointNum++] = start;
    conf->points[conf->pointNum++] = end;
    conf->direction = direction;
    std::printf("cross line start (%d,%d), end (%d,%d)\n", start.x, start.y, end.x, end.y);
    return 0;
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
    read_filters(*conf);
    conf->alarmTime = va::RecordReader().number("30", "VideoAnalytics.OD.VmfParam.AlarmTimes");
    read_nd_areas(*conf);
    read_combo(*conf);
    if (!conf->valid)
        ConfReport().reject("VideoAnalytics.OD.VmfParam.", "no filter: neither line nor area");
    return 0;
}

int conf_vmfBit(const ODVmfParamConf &conf, int n)
{
    assert(n >= 0 && n < conf.filterNum && n < CONF_VMF_FILTERS);
    const std::span before(conf.filters, static_cast<std::size_t>(n));
    return static_cast<int>(
        std::ranges::count(before, conf.filters[n].event, &ODVmfFilterConf::event));
}
