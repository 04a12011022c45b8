#pragma once

#include "client/entries.h"
#include "client/status.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What the daemon's settings in force mark in the video frame, as its status has it.
namespace va
{

// The line or area that a bit of the alarm masks stands for.
struct AlarmRule {
    enum class Source { Line, Area };

    Source source;
    int event;                 // code: which of a record's masks
    int bit;                   // of that mask
    std::optional<int> number; // in the settings' keys, where they are known
};

// The one of an alarm; when it is not among those that are known, without a number.
AlarmRule rule_among(const std::vector<AlarmRule> &known, Alarm alarm);

// "CrossLine.C0", or "event 1 bit 0" where the settings are not known.
std::string name_of(const AlarmRule &rule);

struct Size {
    std::int32_t width;
    std::int32_t height;
    bool operator==(const Size &) const = default;
};

struct Point {
    std::int32_t x; // ten-thousandths of the frame's width
    std::int32_t y; // ten-thousandths of the frame's height
    bool operator==(const Point &) const = default;
};

struct Shape {
    enum class Kind {
        NonDetection,    // window: nothing is detected there
        DetectionWindow, // detected only there
        NoAlarm,         // no-detection area: no filter alarms there
        Line,
        Area,
        FaceWatch,
        FaceDetection,
    };

    Kind kind;
    int number;                         // in the settings' keys, from 0
    std::vector<Point> points;          // a line's two ends, or the corners of a rectangle
    bool used = true;                   // false: beyond the number that the daemon takes
    Crossing crossing = Crossing::Both; // of a line
    std::int32_t setting = -1;          // of a line its Direction, of an area its Type; -1: none
    bool operator==(const Shape &) const = default;
};

// How many lines and areas the settings can have.
inline constexpr int MAX_LINES = 3;
inline constexpr int MAX_AREAS = 3;

// What its keys in the settings begin with: "CrossLine.C0".
std::string key_of(const Shape &shape);

struct Scene {
    Size frame;                // of the video, pixels; both above 0
    std::vector<Shape> shapes; // in the order in which they are best drawn
    std::vector<AlarmRule> rules;

    // The shape of a rule; null when it is not known.
    const Shape *shape_of(const AlarmRule &rule) const;
};

// Nothing when the daemon has not answered, or not said its frame. Of modules that are off there is
// nothing. Throws std::bad_alloc.
std::optional<Scene> scene_of(const DaemonStatus &status);

} // namespace va
