#pragma once

#include "platform/sim/frame.h"
#include "platform/sim/source.h"

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// The lines of a feed, made into pictures. docs/scene.md has the lines. One thread.

// Bounds: what goes beyond them is reported and left out.
inline constexpr std::size_t FEED_LINE = 255;     // characters, without the line's end
inline constexpr std::size_t FEED_OBJECTS = 1000; // of a picture
inline constexpr std::size_t FEED_FACES = 36;     // as many as a client of `va` can get
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

    // The writer has gone: what is not complete is dropped, and the next writer's identities are
    // others, its frame is the scene's until it says so.
    void end();

    // While a line is read; what its statements act on.
    struct Unfinished {
        Size frame;  // the scene's
        Size sender; // the writer's
        FeedPicture picture{{{}, true}, {}, {}};
        bool whole = false;
        bool full = false; // there was no room for what the line tells
    };

private:
    enum Problem { not_understood, too_long, too_many, problems };

    void take_line();
    void report(Problem problem, const std::string &line);

    std::string name_;
    Unfinished unfinished_;
    std::vector<FeedPicture> whole_;
    std::string line_;
    std::array<bool, problems> reported_{}; // of this writer
};
