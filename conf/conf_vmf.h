#pragma once

#include "conf/conf.h"

#include <cstdint>

// Event filters of object detection, built from the user's detection areas and cross lines. See
// conf.h; exceptions are noted here.

inline constexpr int CONF_OD_AREAS = 3;
inline constexpr int CONF_CROSS_LINES = 3;
inline constexpr int CONF_VMF_FILTERS = 3;
inline constexpr int CONF_VMF_ND_AREAS = 4;
inline constexpr int CONF_EVENT_CODES = 4;

enum : std::int32_t {      // ODVmfFilterConf::event
    CONF_EVENT_AREA_0 = 0, // an area of type 0 or of an unknown type
    CONF_EVENT_CROSS_LINE = 1,
    CONF_EVENT_AREA_2 = 2, // an area of type 2
    CONF_EVENT_AREA_1 = 3, // an area of type 1
};

// A detection area. Coordinates are 0..9999. Speeds and sizes are not range-checked; an area that
// is not valid has them, too, and 0 in its other fields.
struct ObjectDetectionConf {
    std::int32_t valid;
    std::int32_t pointNum; // 4
    // Corners: top left, bottom left, bottom right, top right; the others are 0.
    ConfPoint points[CONF_POLYGON_POINTS];
    std::int32_t type;
    std::int32_t slowSpeed; // percent
    std::int32_t fastSpeed;
    std::int32_t minInspectionWidth; // pixels of the video frame
    std::int32_t minInspectionHeight;
    std::int32_t maxInspectionWidth;
    std::int32_t maxInspectionHeight;
};
static_assert(sizeof(ObjectDetectionConf) == 100);

// A line from points[0] to points[1], which may be equal; otherwise like an area.
struct CrossLineConf {
    std::int32_t valid;
    std::int32_t pointNum; // 2
    ConfPoint points[CONF_POLYGON_POINTS];
    std::int32_t direction; // that counts; the library's code
    std::int32_t slowSpeed;
    std::int32_t fastSpeed;
    std::int32_t minInspectionWidth;
    std::int32_t minInspectionHeight;
    std::int32_t maxInspectionWidth;
    std::int32_t maxInspectionHeight;
};
static_assert(sizeof(CrossLineConf) == 100);

struct ODVmfFilterConf {
    std::int32_t reserved[2];
    std::int32_t event; // CONF_EVENT_*
    std::int32_t pointNum;
    ConfPoint points[CONF_POLYGON_POINTS];
    std::int32_t objMinSizeX; // pixels of the video frame
    std::int32_t objMaxSizeX;
    std::int32_t objMinSizeY;
    std::int32_t objMaxSizeY;
    std::int32_t slowSpeed; // percent
    std::int32_t fastSpeed;
    std::int32_t movingDirection; // 0 for an area
};
static_assert(sizeof(ODVmfFilterConf) == 108);

// Coordinates are 0..10000.
struct ODVmfNdAreaConf {
    std::int32_t pointNum; // 4, or 0 in an unused slot
    ConfPoint points[CONF_POLYGON_POINTS];
};
static_assert(sizeof(ODVmfNdAreaConf) == 68);

// Unused slots are 0, those of filter numbers -1.
struct ODVmfParamConf {
    std::int32_t valid;     // flag: there is at least one filter
    std::int32_t filterNum; // filters used, from slot 0
    std::int32_t alarmTime; // not range-checked
    ODVmfFilterConf filters[CONF_VMF_FILTERS];
    std::int32_t ndAreaNum; // areas used, from slot 0
    ODVmfNdAreaConf ndAreas[CONF_VMF_ND_AREAS];
    std::int32_t comboValid; // flag: the chain below is consistent
    std::int32_t comboFilterIds[CONF_VMF_FILTERS];
    std::int32_t reserved[2];
    std::int32_t comboIntervals[CONF_VMF_FILTERS - 1]; // between consecutive filters, 0..600000
};
static_assert(sizeof(ODVmfParamConf) == 644);

// Prints a valid line on standard output.
int conf_getCrossLineConf(CrossLineConf *conf, int n);
int conf_getObjectDetectionConf(ObjectDetectionConf *conf, int n);

// Clear the filter and, if the source is valid, describe it. Return 0.
int conf_convObjectDetectionConf2ODVmfFilterConf(ODVmfFilterConf *filter,
                                                 const ObjectDetectionConf *area);
int conf_convCrossLineConf2ODVmfFilterConf(ODVmfFilterConf *filter, const CrossLineConf *line);

// The filters are the valid cross lines, then the valid areas, each kind by its number, until there
// are CONF_VMF_FILTERS. Prints what conf_getCrossLineConf() prints.
int conf_getODVmfParamConf(ODVmfParamConf *conf);

// The bit of filters[n], n below filterNum: how many filters before it have its event code.
int conf_vmfBit(const ODVmfParamConf &conf, int n);

int conf_compareODVmfFilterConf(const ODVmfFilterConf *a, const ODVmfFilterConf *b);
int conf_compareODVmfParamConf(const ODVmfParamConf *a, const ODVmfParamConf *b);
