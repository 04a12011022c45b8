#pragma once

#include "client/entries.h"
#include "client/shapes.h"
#include "tools/va_picture/trails.h"

#include <cstdint>
#include <string>
#include <vector>

// The picture of a moment: the video frame with what the settings mark in it and what was seen.
namespace va::picture
{

struct MarkedShape {
    Shape shape;
    bool lit = false;            // alarms
    std::uint64_t crossings = 0; // of a line, so far
};

struct Picture {
    // Whether what it shows is still so.
    enum class State {
        Live,    // a daemon is connected, however little it sends
        Unwell,  // one that hangs or runs without analytics
        Waiting, // none was yet
        Gone,    // none any more
        Ended,   // nobody draws any more
        Capture, // of records from a file
    };

    State state = State::Live;
    std::string state_text; // for people
    std::string caption;
    std::string clock;
    std::int64_t drawn = 0; // milliseconds since 1970

    Size frame;        // of the video, both above 0
    std::string still; // of it: a JPEG, empty: none
    std::vector<MarkedShape> shapes;
    std::vector<Detection> detections = {};
    std::vector<Trail> trails = {};
    bool tamper = false;
    std::vector<std::string> events = {}; // the newest first
    bool has_objects = false;             // may be seen, and so stand in the legend
    bool has_faces = false;
};

inline constexpr std::size_t PICTURE_EVENTS = 10; // for which there is room

} // namespace va::picture
