#pragma once

#include <cstdint>

// What is known of a sensor.

struct SensorConfig {
    char sensor[64]; // model name, zero-terminated
    char profileMode[64];
    std::int32_t anyStandard; // flag: holds for both video standards
    std::int32_t ntsc;        // video standard: 1 NTSC, 0 PAL
    std::int32_t width;       // full video frame of the mode, pixels
    std::int32_t height;
    std::int32_t fps;
};
static_assert(sizeof(SensorConfig) == 148);

inline constexpr int CONF_FRAME_BUFFER_SIZES = 6; // pairs of width and height

struct FrameBufferConf {
    const char *name; // sensor model; static text
    std::int32_t bufferNum;
    std::int32_t sizes[2 * CONF_FRAME_BUFFER_SIZES]; // pixels, largest first, 0 x 0 where unused
};
static_assert(sizeof(FrameBufferConf::sizes) == 48);
static_assert(sizeof(void *) != 4 || sizeof(FrameBufferConf) == 56);
