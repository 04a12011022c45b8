#pragma once

#include "platform/sim/calls.h"
#include "platform/sim/frame.h"
#include "platform/sim/source.h"
#include "records/records.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// A scene file as read. Times are milliseconds from the scene's start.

struct Interval {
    std::int64_t begin;
    std::int64_t end; // the first moment after it

    bool holds(std::int64_t time) const { return begin <= time && time < end; }
};

struct ScriptedAlarm {
    std::int64_t first;
    std::int64_t every; // 0: once a period
    AlarmWords words;
};

struct ScriptedObject {
    SimObjectEntry entry; // but for its place
    Point from;           // its centre
    Point to;
    Interval shown;
};

struct ScriptedFace {
    SimFaceEntry entry;
    Interval shown;
};

struct PlannedCall {
    std::string function;
    int nth;
    CallPlan plan;
};

struct Scene {
    Size frame{1920, 1080};
    std::int64_t period = 0; // 0: the scene does not repeat
    std::int64_t begin = 0;  // where the first period is entered
    std::int64_t od_interval = 200;
    std::string feed; // where observations come from instead of the lists below; empty: nowhere
    std::vector<ScriptedAlarm> alarms;
    std::vector<ScriptedObject> objects;
    std::vector<ScriptedFace> faces;
    std::vector<PlannedCall> calls;
};

// Reads a scene file; nothing when it cannot be read. `clean` tells whether every line counts;
// those that do not are reported on standard error.
std::optional<Scene> read_scene(const std::string &path, bool &clean);
