#pragma once

#include "platform/sim/observations.h"

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// The lines of a feed, parsed into pictures; docs/scene.md describes them. One thread.

namespace va::sim
{

// Bounds: what goes beyond them is reported and ignored.
inline constexpr std::size_t FEED_LINE = 255;     // characters, without the line's end
inline constexpr std::size_t FEED_OBJECTS = 1000; // of a picture
inline constexpr std::size_t FEED_FACES = 36;     // as many as a client of `va` can receive
inline constexpr std::size_t FEED_ALARMS = 4;

struct FeedPicture {
    SeenObjects seen;
    std::vector<SimFaceEntry> faces;
    std::vector<AlarmWords> alarms;
};

class FeedLines
{
public:
    // `name` is what reports call the feed; places are scaled to `frame`.
    FeedLines(std::string name, Size frame);

    // Takes bytes as they come, whole lines or not; returns the pictures that they complete.
    std::vector<FeedPicture> take(std::string_view bytes);

    // The writer has gone: what is not complete is dropped. The next writer's objects are new, and
    // its frame is the scene's until it says otherwise.
    void end();

    // What the statements act on.
    struct Unfinished {
        Size frame;  // the scene's
        Size sender; // the writer's
        FeedPicture picture{{{}, true}, {}, {}};
        bool whole = false;    // by the line that is read
        bool too_many = false; // what the line adds goes beyond a bound
    };

private:
    enum Problem { not_understood, too_long, too_many, problem_count };

    void take_line();
    void report(Problem problem, const std::string &line);

    std::string name_;
    Unfinished unfinished_;
    std::vector<FeedPicture> pictures_; // whole, not yet returned
    std::string line_;
    std::array<bool, problem_count> reported_{}; // of this writer
};

} // namespace va::sim
