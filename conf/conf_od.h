#pragma once

#include "conf/conf.h"

#include <cstdint>

// Settings of object detection, and the motion windows and privacy masks. `valid` is 1 when the
// record was read and all its values are in their ranges. See conf.h; exceptions are noted here.

struct ODCtrlConf {
    std::int32_t valid;
    std::int32_t resolution; // working-resolution code, 0..2
    std::int32_t interval;   // response setting, 1..6
    std::int32_t diffImgNum; // difference images, 1..15
};
static_assert(sizeof(ODCtrlConf) == 16);

// A window in which nothing is detected. Coordinates are 0..9999.
struct ODMaskConf {
    std::int32_t valid;
    std::int32_t index;    // the window number given to the reader
    std::int32_t pointNum; // 4
    // Corners: top left, bottom left, bottom right, top right; the others are 0.
    ConfPoint points[CONF_POLYGON_POINTS];
};
static_assert(sizeof(ODMaskConf) == 76);

// A window to which detection is limited; otherwise like ODMaskConf.
struct ODDetMaskConf {
    std::int32_t valid;
    std::int32_t index;
    std::int32_t pointNum;
    ConfPoint points[CONF_POLYGON_POINTS];
};
static_assert(sizeof(ODDetMaskConf) == 76);

// Dynamic (moving) objects.
struct ODDoParamInitConf {
    std::int32_t valid;
    std::int32_t maxObjNum; // 1..72
};
static_assert(sizeof(ODDoParamInitConf) == 8);

// Sizes in pixels of the video frame, 1..4000; the minimum may exceed the maximum.
struct ODDoParamSetConf {
    std::int32_t valid;
    std::int32_t subth; // sensitivity, 0..255
    std::int32_t maxSizeX;
    std::int32_t maxSizeY;
    std::int32_t minSizeX;
    std::int32_t minSizeY;
};
static_assert(sizeof(ODDoParamSetConf) == 24);

// Static (left or removed) objects.
struct ODSoParamInitConf {
    std::int32_t valid;
    std::int32_t maxObjNum; // 1..72
    std::int32_t reserved[5];
};
static_assert(sizeof(ODSoParamInitConf) == 28);

// Sizes in cells of the detection grid.
struct ODSoParamSetConf {
    std::int32_t valid;
    std::int32_t soThTime; // seconds before an object is reported, 5..86400
    std::int32_t maxSizeX; // 2..160
    std::int32_t maxSizeY; // 2..120
    std::int32_t minSizeX; // 1..maxSizeX
    std::int32_t minSizeY; // 1..maxSizeY
};
static_assert(sizeof(ODSoParamSetConf) == 24);

// Not range-checked. A window without a name is not valid; all but `index` is 0 then.
struct MotionConfig {
    std::int32_t valid;
    std::int32_t x; // ten-thousandths of the frame
    std::int32_t y;
    std::int32_t width; // wraps when the settings are absurd
    std::int32_t height;
    std::int32_t include; // flag: motion counts inside the window, else outside
    std::int32_t objectSize;
    std::int32_t sensitivity;
    std::int32_t index; // the window number given to the reader
};
static_assert(sizeof(MotionConfig) == 36);

// Not range-checked. A mask without a name is not valid; all but `index` is 0 then.
struct PrivacyMaskConfig {
    std::int32_t valid;
    char name[64]; // cut to 63 characters; 0 beyond its text
    std::int32_t left;
    std::int32_t right;
    std::int32_t top;
    std::int32_t bottom;
    std::int32_t level;
    std::int32_t index; // the mask number given to the reader
};
static_assert(sizeof(PrivacyMaskConfig) == 92);

// How many windows and masks are read, from number 0 on.
inline constexpr int CONF_OD_WINDOWS = 4; // of each kind
inline constexpr int CONF_MOTION_WINDOWS = 30;
inline constexpr int CONF_PRIVACY_MASKS = 20;

int conf_getODCtrlConf(ODCtrlConf *conf);
int conf_getODMaskConf(ODMaskConf *conf, int n);
int conf_getODDetMaskConf(ODDetMaskConf *conf, int n);
int conf_getODDoParamInitConf(ODDoParamInitConf *conf);
int conf_getODDoParamSetConf(ODDoParamSetConf *conf);
int conf_getODSoParamInitConf(ODSoParamInitConf *conf);
int conf_getODSoParamSetConf(ODSoParamSetConf *conf);
int conf_getMotionConfig(MotionConfig *conf, int n);
int conf_getPrivacyMaskConfig(PrivacyMaskConfig *conf, int n);

int conf_compareODCtrlConf(const ODCtrlConf *a, const ODCtrlConf *b);
int conf_compareODMaskConf(const ODMaskConf *a, const ODMaskConf *b);
int conf_compareODDetMaskConf(const ODDetMaskConf *a, const ODDetMaskConf *b);
int conf_compareODDoParamInitConf(const ODDoParamInitConf *a, const ODDoParamInitConf *b);
int conf_compareODDoParamSetConf(const ODDoParamSetConf *a, const ODDoParamSetConf *b);
int conf_compareODSoParamInitConf(const ODSoParamInitConf *a, const ODSoParamInitConf *b);
int conf_compareODSoParamSetConf(const ODSoParamSetConf *a, const ODSoParamSetConf *b);
int conf_compareMotionConfig(const MotionConfig *a, const MotionConfig *b);
int conf_comparePrivacyMaskConfig(const PrivacyMaskConfig *a, const PrivacyMaskConfig *b);

// For conf/findings.h, by the user of the record: it is usable (null), or why it is not.
void conf_useODDoParamSetConf(const char *why_not);
void conf_useStaticSizes(const char *why_not); // of ODSoParamSetConf
