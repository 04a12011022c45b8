#include "conf/conf_od.h"

#include "conf/store.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>

#include <strings.h>

namespace
{

constexpr std::int32_t max_objects = 72;

constexpr const char *out_of_range = "out of its range, or set together with such a value";

template <class Record>
void conclude(Record &record, bool valid)
{
    if (valid)
        record.valid = 1;
    else
        record = {};
}

template <class Record>
struct Setting {
    std::int32_t Record::*field;
    Key key;
    const char *default_text;
    std::int32_t min;
    std::int32_t max;
};

template <class Settings>
void leave_out(const Settings &settings, const char *why)
{
    for (const auto &setting : settings)
        conf_leaveOut(setting.key.text(), why);
}

template <class Record>
bool is_in_range(const Record &record, const Setting<Record> &setting)
{
    return int_chk_range(record.*setting.field, setting.min, setting.max) != 0;
}

// One that is out of its range takes the others of its record along.
template <class Record>
void leave_out_of_range(const Record &record, const Setting<Record> &setting)
{
    char range[64];
    std::snprintf(range, sizeof range, "out of its range, %d to %d", setting.min, setting.max);
    conf_leaveOut(setting.key.text(),
                  is_in_range(record, setting) ? "set together with one out of its range" : range);
}

template <class Record, std::size_t Count>
void read_settings(Record &record, const Setting<Record> (&settings)[Count])
{
    RecordReader store;
    record = {};
    for (const auto &setting : settings)
        record.*setting.field = store.number(setting.default_text, setting.key);
    if (std::ranges::all_of(settings,
                            [&](const auto &setting) { return is_in_range(record, setting); })) {
        record.valid = 1;
        return;
    }
    for (const auto &setting : settings)
        leave_out_of_range(record, setting);
    record = {};
}

// `Mask` is either record of a mask window.
template <class Mask>
void read_mask(Mask &mask, const EdgeKeys &keys, int n)
{
    RecordReader store;
    mask = {};
    mask.index = n;
    mask.pointNum = store_corners(read_edges(store, keys, n), max_coordinate, mask.points);
    conclude(mask, mask.pointNum > 0);
    if (!mask.valid)
        leave_out_with(keys.left, n, no_window);
}

constexpr Key dynamic_keys[] = {"VMDWindow.Sensitivity", "VMDWindow.MinDetectionSize",
                                "VMDWindow.MaxDetectionSize"};

constexpr Setting<ODSoParamSetConf> static_settings[] = {
    {&ODSoParamSetConf::soThTime, "ObjectDetection.SODetectionTime", "5", 5, 86400},
    {&ODSoParamSetConf::maxSizeX, "VideoAnalytics.OD.SOParam.MaxSizeX", "160", 2, 160},
    {&ODSoParamSetConf::maxSizeY, "VideoAnalytics.OD.SOParam.MaxSizeY", "120", 2, 120},
    {&ODSoParamSetConf::minSizeX, "VideoAnalytics.OD.SOParam.MinSizeX", "1", 1, 160},
    {&ODSoParamSetConf::minSizeY, "VideoAnalytics.OD.SOParam.MinSizeY", "1", 1, 120},
};

} // namespace

int conf_getODCtrlConf(ODCtrlConf *conf)
{
    static constexpr Setting<ODCtrlConf> settings[] = {
        {&ODCtrlConf::resolution, "VideoAnalytics.OD.Resolution", "2", 0, 2},
        {&ODCtrlConf::interval, "VMDWindow.Response", "6", 1, 6},
        {&ODCtrlConf::diffImgNum, "VideoAnalytics.OD.DiffImgNum", "5", 1, 15},
    };
    read_settings(*conf, settings);
    return 0;
}

int conf_getODMaskConf(ODMaskConf *conf, int n)
{
    static constexpr EdgeKeys keys = {
        "VMDWindow.NonDetect.V%d.Left", "VMDWindow.NonDetect.V%d.Right",
        "VMDWindow.NonDetect.V%d.Top", "VMDWindow.NonDetect.V%d.Bottom"};
    read_mask(*conf, keys, n);
    return 0;
}

int conf_getODDetMaskConf(ODDetMaskConf *conf, int n)
{
    static constexpr EdgeKeys keys = {"VMDWindow.Detect.V%d.Left", "VMDWindow.Detect.V%d.Right",
                                      "VMDWindow.Detect.V%d.Top", "VMDWindow.Detect.V%d.Bottom"};
    read_mask(*conf, keys, n);
    return 0;
}

int conf_getODDoParamInitConf(ODDoParamInitConf *conf)
{
    static constexpr Setting<ODDoParamInitConf> settings[] = {
        {&ODDoParamInitConf::maxObjNum, "VideoAnalytics.OD.DOParam.MaxObjNum", "72", 1,
         max_objects},
    };
    read_settings(*conf, settings);
    return 0;
}

int conf_getODDoParamSetConf(ODDoParamSetConf *conf)
{
    constexpr ConfSize malformed = {-1, -1};
    constexpr std::int32_t max_sensitivity = 255;
    constexpr std::int32_t max_size = 4000;

    RecordReader store;
    *conf = {};
    conf->subth = store.number("25", dynamic_keys[0]);
    const ConfSize min = read_size(store, "1x1", dynamic_keys[1], 0, malformed);
    const ConfSize max = read_size(store, "1920x1080", dynamic_keys[2], 0, malformed);
    conf->minSizeX = min.width;
    conf->minSizeY = min.height;
    conf->maxSizeX = max.width;
    conf->maxSizeY = max.height;
    conclude(*conf, int_chk_range(conf->subth, 0, max_sensitivity) &&
                        all_in_range({min.width, min.height, max.width, max.height}, 1, max_size));
    if (!conf->valid) {
        for (const Key key : dynamic_keys)
            conf_leaveOut(key.text(), out_of_range);
    }
    return 0;
}

void conf_useODDoParamSetConf(const char *why_not)
{
    for (const Key key : dynamic_keys)
        conf_use(key.text(), why_not);
}

int conf_getODSoParamInitConf(ODSoParamInitConf *conf)
{
    static constexpr Setting<ODSoParamInitConf> settings[] = {
        {&ODSoParamInitConf::maxObjNum, "VideoAnalytics.OD.SOParam.MaxObjNum", "72", 1,
         max_objects},
    };
    read_settings(*conf, settings);
    return 0;
}

int conf_getODSoParamSetConf(ODSoParamSetConf *conf)
{
    read_settings(*conf, static_settings);
    if (conf->minSizeX > conf->maxSizeX || conf->minSizeY > conf->maxSizeY) {
        *conf = {};
        leave_out(static_settings, "the smallest size is above the largest");
    }
    return 0;
}

void conf_useStaticSizes(const char *why_not)
{
    for (const auto &setting : std::span(static_settings).last<4>())
        conf_use(setting.key.text(), why_not);
}

int conf_getMotionConfig(MotionConfig *conf, int n)
{
    KeyReader store;
    *conf = {};
    conf->index = n;
    if (!*store.text("", "Motion.M%d.Name", n))
        return 0;
    conf->valid = 1;
    conf->include = strcasecmp(store.text("include", "Motion.M%d.WindowType", n), "include") == 0;
    Edges edges;
    edges.left = store.number("0", "Motion.M%d.Left", n);
    edges.top = store.number("0", "Motion.M%d.Top", n);
    edges.right = store.number("0", "Motion.M%d.Right", n);
    edges.bottom = store.number("0", "Motion.M%d.Bottom", n);
    store_rectangle(edges, *conf);
    conf->sensitivity = store.number("0", "Motion.M%d.Sensitivity", n);
    conf->objectSize = store.number("0", "Motion.M%d.ObjectSize", n);
    return 0;
}

int conf_getPrivacyMaskConfig(PrivacyMaskConfig *conf, int n)
{
    KeyReader name_store;
    KeyReader store;
    PrivacyMaskConfig mask = {};
    const char *name = name_store.text("", "PrivacyMask.M%d.Name", n);
    std::memcpy(mask.name, name, strnlen(name, sizeof mask.name - 1));
    mask.left = store.number("100", "PrivacyMask.M%d.Left", n);
    mask.right = store.number("100", "PrivacyMask.M%d.Right", n);
    mask.top = store.number("100", "PrivacyMask.M%d.Top", n);
    mask.bottom = store.number("100", "PrivacyMask.M%d.Bottom", n);
    mask.level = store.number("100", "PrivacyMask.M%d.Level", n);
    conclude(mask, *name != '\0');
    mask.index = n;
    *conf = mask;
    return 0;
}
