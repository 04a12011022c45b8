#pragma once

#include "conf/parts.h"
#include "conf/sensor_config.h"

#include <cstdint>

// The built-in tables, each ended by the row its comment names. Private to conf/ and its tests.

struct NamedSize {
    const char *name;
    ConfSize size;
};

struct SensorResolutions {
    const char *sensor;
    const char *profileMode;
    std::int32_t ntsc;     // the video standard the row is for: 1 NTSC, 0 PAL
    const NamedSize *list; // ends at the first entry without a name
};

// By sensor, profile mode and video standard; the first row that matches counts. Ends at width 0.
extern const SensorConfig g_sensorConfigs[];

// The stream resolutions that sensors offer by name. Ends at the first row without a sensor.
extern const SensorResolutions sensor_resolution_table[];

// What the names mean in general. Ends at the first entry without a name.
extern const NamedSize all_resolution[];

// Ends at the first row without a name.
extern const FrameBufferConf gatFrameBufferConf[];
