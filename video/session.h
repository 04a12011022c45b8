#pragma once

#include "video/reader.h"

namespace va::video
{

struct Options {
    ReaderOptions reader;
    std::string feed;
    bool faces = true;
    std::optional<std::string> still;
    FrameSize frame = {1920, 1080}; // that boxes are reported in
};

// Analyses the source until it ends or must_stop(), and reports to the feed. Returns the exit
// status. Once in a process.
int run_session(const Options &options);

} // namespace va::video
