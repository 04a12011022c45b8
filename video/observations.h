#pragma once

#include "video/frame.h"
#include "video/tracker.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What one look at a video brought, and how it is told: the lines that the stand-in's feed reads.

struct Observations {
    VideoTime time;
    bool jump;                    // nothing here continues what was told before
    std::optional<int> tamper;    // its cause
    std::vector<Tracked> objects; // in the frame
    std::vector<Tracked> faces;
};

// By which a picture is known: its time in 32 bits, from 0 again after seven weeks.
constexpr std::uint32_t picture_number(VideoTime time)
{
    return static_cast<std::uint32_t>(time);
}

// The first line of a connection.
std::string frame_line(FrameSize frame);

// The lines of one picture, all of them whole.
std::string lines_of(const Observations &observations);
