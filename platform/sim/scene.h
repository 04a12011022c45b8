#pragma once

#include "platform/sim/observations.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// A scene file, read and played. Times are milliseconds from the scene's start.

namespace va::sim
{

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

// What is to happen in a call.
struct PlannedCall {
    std::string function;
    int nth;                           // of the calls from now on, from 1
    int error = 0;                     // it fails with this, without effect; 0: it does not
    std::chrono::milliseconds hang{0}; // it hangs this long before
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
    bool clean = true; // every line counts
};

// Reads a scene file; nothing when it cannot be read. Lines that do not count are reported on
// standard error.
std::optional<Scene> read_scene(const std::string &path);

// Plays a scene, from where it begins whenever it is started. Of the objects and of the faces that
// fell due while nobody read them, the newest is kept, and with it those of the 100 ms before; an
// alarm that fell due several times is one alarm. None is due while the scene shows nothing at the
// next time.
std::unique_ptr<Source> make_playback(Scene scene);

} // namespace va::sim
