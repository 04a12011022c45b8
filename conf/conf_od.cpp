#include "conf/conf_od.h"

#include "conf/store.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>

#include <strings.h>

namespace
{

template <class Record>
struct Setting {
    std::int32_t Record::*field;
    const char *key;
    const char *default_text;
    std::int32_t min;
    std::int32_t max;
    std::int32_t Record::*height = nullptr; // of a size, whose width is `field`

    bool in_range(const Record &record) const
    {
        return int_chk_range(record.*field, min, max) &&
               (!height || int_chk_range(record.*height, min, max));
    }
};

template <class Record>
void read_setting(va::RecordReader &store, const Setting<Record> &setting, Record &record)
{
    const auto &[field, key, default_text, min, max, height] = setting;
    if (height)
        store.size(default_text, key, {-1, -1}, record.*field, record.*height);
    else
        record.*field = store.number(default_text, key);
}

// One that is out of its range takes the others of its record along.
template <class Record>
void reject_setting(const Setting<Record> &setting, const Record &record)
{
    char range[64];
    std::snprintf(range, sizeof range, "out of its range, %d to %d", setting.min, setting.max);
    ConfReport().reject(
        setting.key, setting.in_range(record) ? "set together with one out of its range" : range);
}

template <class Record, std::size_t Count>
int read_settings(Record &record, const Setting<Record> (&settings)[Count])
{
    va::RecordReader store;
    record = {};
    for (const auto &setting : settings)
        read_setting(store, setting, record);
    record.valid = std::ranges::all_of(
        settings, [&](const auto &setting) { return setting.in_range(record); });
    if (record.valid)
        return 0;
    for (const auto &setting : settings)
        reject_setting(setting, record);
    record = {};
    return 0;
}

// `Mask` is either record of a mask window.
template <class Mask>
int read_mask(Mask &mask, const char *item, int n)
{
    va::RecordReader store(item, n);
    mask = {};
    mask.pointNum =
        va::store_corners(store, va::read_edges(store), va::max_coordinate, mask.points);
    if (mask.pointNum) {
        mask.valid = 1;
        mask.index = n;
    }
    return 0;
}

constexpr Setting<ODCtrlConf> control_settings[] = {
    {&ODCtrlConf::resolution, "VideoAnalytics.OD.Resolution", "2", 0, 2},
    {&ODCtrlConf::interval, "VMDWindow.Response", "6", 1, 6},
    {&ODCtrlConf::diffImgNum, "VideoAnalytics.OD.DiffImgNum", "5", 1, 15},
};

constexpr Setting<ODDoParamInitConf> dynamic_init_settings[] = {
    {&ODDoParamInitConf::maxObjNum, "VideoAnalytics.OD.DOParam.MaxObjNum", "72", 1, 72},
};

constexpr Setting<ODDoParamSetConf> dynamic_settings[] = {
    {&ODDoParamSetConf::subth, "VMDWindow.Sensitivity", "25", 0, 255},
    {&ODDoParamSetConf::minSizeX, "VMDWindow.MinDetectionSize", "1x1", 1, 4000,
     &ODDoParamSetConf::minSizeY},
    {&ODDoParamSetConf::maxSizeX, "VMDWindow.MaxDetectionSize", "1920x1080", 1, 4000,
     &ODDoParamSetConf::maxSizeY},
};

constexpr Setting<ODSoParamInitConf> static_init_settings[] = {
    {&ODSoParamInitConf::maxObjNum, "VideoAnalytics.OD.SOParam.MaxObjNum", "72", 1, 72},
};

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
    return read_settings(*conf, control_settings);
}

int conf_getODMaskConf(ODMaskConf *conf, int n)
{
    return read_mask(*conf, "VMDWindow.NonDetect.V", n);
}

int conf_getODDetMaskConf(ODDetMaskConf *conf, int n)
{
    return read_mask(*conf, "VMDWindow.Detect.V", n);
}

int conf_getODDoParamInitConf(ODDoParamInitConf *conf)
{
    return read_settings(*conf, dynamic_init_settings);
}

int conf_getODDoParamSetConf(ODDoParamSetConf *conf)
{
    return read_settings(*conf, dynamic_settings);
}

int conf_getODSoParamInitConf(ODSoParamInitConf *conf)
{
    return read_settings(*conf, static_init_settings);
}

int conf_getODSoParamSetConf(ODSoParamSetConf *conf)
{
    read_settings(*conf, static_settings);
    if (conf->minSizeX > conf->maxSizeX || conf->minSizeY > conf->maxSizeY) {
        *conf = {};
        for (const auto &setting : static_settings)
            ConfReport().reject(setting.key, "the smallest size is above the largest");
    }
    return 0;
}

void conf_useODDoParamSetConf(const char *why_not)
{
    for (const auto &setting : dynamic_settings)
        ConfReport().use(setting.key, why_not);
}

void conf_useStaticSizes(const char *why_not)
{
    for (const auto &setting : std::span(static_settings).last<4>())
        ConfReport().use(setting.key, why_not);
}

int conf_getMotionConfig(MotionConfig *conf, int n)
{
    va::KeyReader store("Motion.M", n);
    *conf = {};
    conf->index = n;
    if (!*store.text("", "Name"))
        return 0;
    conf->valid = 1;
    conf->include = strcasecmp(store.text("include", "WindowType"), "include") == 0;
    va::Edges edges;
    edges.left = store.number("0", "Left");
    edges.top = store.number("0", "Top");
    edges.right = store.number("0", "Right");
    edges.bottom = store.number("0", "Bottom");
    va::store_rectangle(edges, *conf);
    conf->sensitivity = store.number("0", "Sensitivity");
    conf->objectSize = store.number("0", "ObjectSize");
    return 0;
}

int conf_getPrivacyMaskConfig(PrivacyMaskConfig *conf, int n)
{
    va::KeyReader store("PrivacyMask.M", n);
    *conf = {};
    const char *name = store.text("", "Name");
    std::memcpy(conf->name, name, strnlen(name, sizeof conf->name - 1));
    conf->left = store.number("100", "Left");
    conf->right = store.number("100", "Right");
    conf->top = store.number("100", "Top");
    conf->bottom = store.number("100", "Bottom");
    conf->level = store.number("100", "Level");
    conf->valid = 1;
    if (!*conf->name)
        *conf = {};
    conf->index = n;
    return 0;
}
