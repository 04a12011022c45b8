#pragma once

#include <cstdint>

// Conventions of the configuration reader. A reader, conf_get + record name, fills a plain record
// of 32-bit fields from the store and returns 0; every byte of the record is written. A comparison,
// conf_compare + record name, returns 0 when two records are equal byte for byte. Readers keep
// nothing between calls and may be called from any thread.
//
// A missing key yields its default. Numbers are decimal: leading blanks and a sign are accepted,
// conversion stops at the first other character, text without a number gives 0, and a number that
// does not fit becomes the nearest 32-bit value. Records with a field `valid` are range-checked: a
// value out of its range leaves the whole record 0.

inline constexpr int CONF_POLYGON_POINTS = 8;

struct ConfPoint {
    std::int32_t x; // ten-thousandths of the frame's width
    std::int32_t y; // ten-thousandths of the frame's height
};

struct ConfSize {
    std::int32_t width; // pixels
    std::int32_t height;
};

// What the camera knows about a sensor in one of its modes.
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

struct FrameBufferConf {
    const char *name; // sensor model; static text
    std::int32_t bufferNum;
    std::int32_t sizes[12]; // pairs of width and height, pixels, largest first, 0 x 0 where unused
};
static_assert(sizeof(FrameBufferConf::sizes) == 48);
static_assert(sizeof(void *) != 4 || sizeof(FrameBufferConf) == 56);

// 1 for "Enabled", "Enable", "yes", "on" or "1" in any case, else 0.
int isEnabled(const char *text);

// 1 when min <= value <= max, else 0.
int int_chk_range(std::int32_t value, std::int32_t min, std::int32_t max);
