#pragma once

#include "conf/conf.h"

#include <cstdint>
#include <span>

// The built-in tables. Private to conf_sensor.cpp.

namespace va
{

struct NamedSize {
    const char *name;
    ConfSize size;
};

struct SensorResolutions {
    const char *sensor;
    const char *profileMode;
    std::int32_t ntsc; // the video standard the row is for: 1 NTSC, 0 PAL
    std::span<const NamedSize> sizes;
};

inline constexpr NamedSize hd_sizes[] = {
    {"720p", {1280, 720}},
    {"vga", {640, 480}},
};

inline constexpr NamedSize full_hd_sizes[] = {
    {"1080p", {1920, 1080}}, {"720p", {1280, 720}}, {"vga", {640, 480}},
    {"qvga", {320, 180}},    {"qqvga", {160, 90}},
};

// By sensor, profile mode and video standard; the first row that matches counts:
// {sensor, profileMode, anyStandard, ntsc, width, height, fps}
inline constexpr SensorConfig g_sensorConfigs[] = {
    {"ov9712", "720P", 1, 1, 1280, 720, 30},
    {"mt9d111", "2 MEGA", 1, 1, 1600, 1200, 15},
    {"mt9d111", "720P", 1, 1, 1280, 720, 30},
    {"hm1375", "1.3 MEGA", 1, 1, 1280, 1024, 30},
    {"hm1375", "720P", 1, 1, 1280, 720, 30},
    {"hm1375-zulp", "1.3 MEGA", 1, 1, 1280, 1024, 30},
    {"hm1375-zulp", "720P", 1, 1, 1280, 720, 30},
    {"hm2055", "2 MEGA", 1, 1, 1600, 1200, 15},
    {"hm2055", "720P", 1, 1, 1280, 720, 30},
    {"mt9d131", "2 MEGA", 1, 1, 1600, 1200, 15},
    {"mt9d131", "720P", 1, 1, 1280, 720, 30},
    {"tw2865", "4cif", 1, 0, 704, 576, 25},
    {"ov2715", "2 MEGA", 1, 1, 1920, 1080, 30},
    {"ov2715", "720P", 1, 1, 1280, 720, 30},
    {"ov2715-tressamir", "2 MEGA", 1, 1, 1920, 1080, 30},
    {"ov2715-tressamir", "720P", 1, 1, 1280, 720, 30},
    {"ov2715-tressamir", "1.5 Mega", 1, 1, 1440, 1080, 30},
    {"ov2715-tressamir", "1.7 Mega", 1, 1, 1584, 1080, 30},
    {"ov2715-tressamir", "SVGA", 1, 1, 1440, 1080, 30},
    {"ov2715-tressamir", "D1", 1, 1, 1320, 1080, 30},
    {"9p031", "2 MEGA", 1, 1, 1920, 1080, 30},
    {"imx036", "2 MEGA", 1, 1, 1920, 1080, 30},
    {"imx036", "3 MEGA", 1, 1, 2048, 1536, 30},
    {"dcm220", "2 MEGA", 1, 1, 1920, 1080, 30},
    {"itn", "2 MEGA", 1, 1, 1920, 1080, 30},
    {"itn", "3 MEGA", 1, 1, 2048, 1536, 30},
    {"avs7201", "2 MEGA", 1, 1, 1920, 1080, 30},
    {"avs7201", "1536", 1, 1, 1536, 1536, 22},
    {"tw2871", "2 MEGA", 1, 1, 1920, 1080, 30},
    {"tw2871", "720P", 1, 1, 1280, 720, 30},
    {"imx122", "2 MEGA", 1, 1, 1920, 1080, 30},
    {"imx122", "1.3 MEGA", 1, 1, 1920, 1080, 30},
    {"imx122", "720P", 1, 1, 1280, 720, 30},
    {"imx122-d1", "D1", 1, 1, 1920, 1080, 30},
    {"imx122-tressamir", "1080P+D1", 1, 1, 1920, 1080, 30},
    {"imx122-tressamir", "2 MEGA", 1, 1, 1920, 1080, 30},
    {"imx122-tressamir", "720P", 1, 1, 1280, 720, 30},
    {"ar0331", "2 MEGA", 1, 1, 1920, 1080, 60},
    {"ar0331", "3 MEGA", 1, 1, 2048, 1536, 30},
    {"ov5653", "5 MEGA Dual Stream", 1, 1, 2592, 1944, 15},
    {"ov5653", "5 MEGA", 1, 1, 2592, 1944, 15},
    {"ov5653", "4 MEGA", 1, 1, 2032, 1936, 15},
    {"ov5653", "2 MEGA", 1, 1, 1920, 1080, 30},
    {"ov5653", "1080x1920", 1, 1, 1080, 1920, 21},
    {"icx692", "720p", 1, 1, 1280, 720, 30},
    {"imx140", "1080P WDR", 1, 1, 1920, 1080, 30},
    {"imx140", "1080P 60FPS", 1, 1, 1920, 1080, 60},
    {"imx140", "1080P 30FPS", 1, 1, 1920, 1080, 30},
    {"imx140", "1080P 25FPS WDR", 1, 1, 1920, 1080, 25},
    {"imx140", "1080P 25FPS", 1, 1, 1920, 1080, 25},
    {"imx140", "1080P 50FPS", 1, 1, 1920, 1080, 50},
    {"imx140la", "1080P WDR", 1, 1, 1920, 1080, 30},
    {"imx140la", "1080P 60FPS", 1, 1, 1920, 1080, 60},
    {"imx140la", "1080P 30FPS", 1, 1, 1920, 1080, 30},
    {"imx140la", "1080P 25FPS WDR", 1, 1, 1920, 1080, 25},
    {"imx140la", "1080P 25FPS", 1, 1, 1920, 1080, 25},
    {"imx140la", "1080P 50FPS", 1, 1, 1920, 1080, 50},
    {"imx185", "1080P WDR", 1, 1, 1920, 1080, 30},
    {"imx185", "1080P 60FPS", 1, 1, 1920, 1080, 60},
    {"imx185", "1080P 30FPS", 1, 1, 1920, 1080, 30},
    {"imx185", "1080P 25FPS WDR", 1, 1, 1920, 1080, 25},
    {"imx185", "1080P 25FPS", 1, 1, 1920, 1080, 25},
    {"imx185", "1080P 50FPS", 1, 1, 1920, 1080, 50},
    {"tw9910", "d1", 0, 1, 704, 480, 30},
    {"tw9910", "d1", 0, 0, 704, 576, 25},
    {"ar0130", "720P", 1, 1, 1280, 720, 30},
    {"h22", "720P", 1, 1, 1280, 720, 30},
    {"ov2710", "2 MEGA", 1, 1, 1920, 1080, 30},
    {"ov2710", "720P", 1, 1, 1280, 720, 60},
    {"imx238", "1.3 MEGA", 1, 1, 1280, 1024, 30},
    {"imx238", "720P", 1, 1, 1280, 720, 30},
};

// The stream resolutions that sensors offer by name.
inline constexpr SensorResolutions sensor_resolution_table[] = {
    {"icx692", "720p", 1, hd_sizes},
    {"imx122", "2 MEGA", 1, full_hd_sizes},
    {"imx140", "1080P WDR", 1, full_hd_sizes},
    {"imx140", "1080P 60FPS", 1, full_hd_sizes},
    {"imx140", "1080P 30FPS", 1, full_hd_sizes},
    {"imx140", "1080P 25FPS WDR", 1, full_hd_sizes},
    {"imx140", "1080P 25FPS", 1, full_hd_sizes},
    {"imx140", "1080P 50FPS", 1, full_hd_sizes},
    {"imx140la", "1080P WDR", 1, full_hd_sizes},
    {"imx140la", "1080P 60FPS", 1, full_hd_sizes},
    {"imx140la", "1080P 30FPS", 1, full_hd_sizes},
    {"imx140la", "1080P 25FPS WDR", 1, full_hd_sizes},
    {"imx140la", "1080P 25FPS", 1, full_hd_sizes},
    {"imx140la", "1080P 50FPS", 1, full_hd_sizes},
    {"imx185", "1080P WDR", 1, full_hd_sizes},
    {"imx185", "1080P 60FPS", 1, full_hd_sizes},
    {"imx185", "1080P 30FPS", 1, full_hd_sizes},
    {"imx185", "1080P 25FPS WDR", 1, full_hd_sizes},
    {"imx185", "1080P 25FPS", 1, full_hd_sizes},
    {"imx185", "1080P 50FPS", 1, full_hd_sizes},
};

// What the names mean in general.
inline constexpr NamedSize all_resolution[] = {
    {"1080p", {1920, 1080}}, {"720p", {1280, 720}}, {"sxga", {1280, 1024}}, {"vga", {640, 480}},
    {"qvga", {320, 240}},    {"qqvga", {160, 112}}, {"d1", {704, 576}},     {"4cif", {704, 576}},
    {"cif", {352, 288}},     {"qcif", {176, 144}},  {"xvga", {1024, 768}},  {"wxga", {1280, 800}},
    {"4vga", {1280, 960}},
};

inline constexpr FrameBufferConf gatFrameBufferConf[] = {
    {"ov9712", 4, {1280, 720, 640, 360}},
    {"mt9d111", 4, {1600, 1200, 640, 480, 320, 240, 160, 120}},
    {"hm1375", 3, {1280, 1024, 640, 480}},
    {"mt9d131", 4, {1600, 1200, 640, 480, 320, 240, 160, 120}},
    {"tw2865", 4, {704, 576}},
    {"ov2715", 4, {1920, 1080, 640, 360, 320, 180, 160, 90}},
    {"ov2715-tressamir", 4, {1920, 1080, 640, 360, 320, 180, 160, 90}},
    {"9p031", 4, {1920, 1080, 640, 480}},
    {"imx036", 4, {2048, 1536, 640, 480}},
    {"dcm220", 4, {1920, 1080, 640, 480}},
    {"itn", 4, {2048, 1536, 640, 480}},
    {"avs7201", 4, {1920, 1080, 640, 480}},
    {"tw2871", 4, {1920, 1080, 640, 480}},
    {"imx122", 4, {1920, 1080, 640, 480}},
    {"tw9910", 4, {720, 576, 360, 288, 180, 144}},
    {"imx122-d1", 4, {1920, 1080, 640, 480}},
    {"imx122-tressamir", 4, {1920, 1080, 640, 480}},
    {"ar0331", 4, {2048, 1536, 640, 480}},
    {"ov5653", 3, {2592, 1944, 720, 576}},
    {"icx692", 4, {1280, 720, 640, 360}},
    {"imx140", 6, {1920, 1080, 720, 576}},
    {"imx140la", 6, {1920, 1080, 720, 576}},
    {"imx185", 6, {1920, 1080, 720, 576}},
    {"ar0130", 4, {1280, 720, 640, 360}},
    {"h22", 4, {1280, 720, 640, 360}},
    {"ov2710", 4, {1920, 1080, 720, 576}},
    {"imx238", 3, {1280, 1024, 720, 480}},
};

} // namespace va
