#pragma once

#include "conf/conf.h"

#include <cstdint>

// The image source: frame size and rate by sensor and profile mode, names of stream resolutions,
// frame buffers. Names are compared without regard to case. Stateless; any thread. See conf.h.

// Looks up the sensor, profile mode and detected video standard that the store holds; `ntsc` of the
// result is the detected standard, even if the sensor's mode does not depend on it. Returns 0,
// or -1 after a line on standard error when there is no such combination (`conf` is then
// untouched).
int conf_getSensorConfig(SensorConfig *conf);

// 1 when a frame of that size, in pixels, counts as 16:9, else 0; 0 also when a side is 0.
std::int32_t conf_isWideAspect(std::int32_t width, std::int32_t height);

// 0 when names, frame rate, video standard and frame size agree; `anyStandard` is ignored.
int conf_compareSensorConfig(const SensorConfig *a, const SensorConfig *b);

// The size that `text` stands for: two numbers joined by "x" or, failing that, one of the names
// that the sensor offers in this mode and video standard. Returns 0 when width and height are both
// non-zero, else -1; both are stored in either case.
int conf_parseResolution(const char *sensor, const char *mode, std::int32_t anyStandard,
                         std::int32_t ntsc, const char *text, std::int32_t *width,
                         std::int32_t *height);

// The size that `text` stands for: two numbers joined by "x" as they are or, for a name, the size
// in `list` that is nearest in width to what the name means in general (to 0 if it is unknown).
// `list` is a count followed by that many pairs of width and height; the first pair must exist even
// when the count is 0 or negative. Returns 0 when width and height are both non-zero, else -1; both
// are stored in either case.
int guess_resolution(const std::int32_t *list, const char *text, std::int32_t *width,
                     std::int32_t *height);

// The frame buffers of a sensor; a positive count in the store replaces the built-in one. Returns 0
// or, when the sensor has none, -1 (`conf` is then untouched).
int FrameBufferConf_Get(const char *sensor, FrameBufferConf *conf);
