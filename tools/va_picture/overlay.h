#pragma once

#include "conf/parts.h"

#include <cstdint>
#include <string>
#include <vector>

// What the settings mark in the picture, read from the camera's settings store.

struct Shape {
    enum class Kind {
        NonDetection, // window: nothing is detected there
        Detection,    // window: detected only there
        NoAlarm,      // no-detection area: no filter alarms there
        Line,
        Area,
        FaceWatch,
        FaceDetection,
    };

    Kind kind;
    int number; // in the store's keys, from 0
    std::vector<ConfPoint> points;
    bool used = true; // false: beyond the number that the daemon takes

    // Of lines and areas in use: the bit of the alarm mask that stands for it.
    std::int32_t event = 0;
    int bit = 0;
    std::int32_t direction = 0; // of a line
};

// What its keys in the store begin with: "CrossLine.C0".
std::string key_of(const Shape &shape);

// In the order in which they are best drawn.
std::vector<Shape> read_overlay();
