#pragma once

#include "video/frame.h"

#include <optional>
#include <string>

struct Options {
    enum class Request { run, help, version };
    Request request = Request::run;
    std::string source;
    std::string feed;
    bool fast = false;
    bool loop = false;
    bool faces = true;
    double rate = 30;               // looks a second, at most
    int threads = 1;                // of the library
    std::string still;              // a file, or empty
    FrameSize frame = {1920, 1080}; // that is told of
};

extern const char USAGE[];

// Nothing after a line on standard error when the arguments are of no use.
std::optional<Options> parse_options(int argc, char **argv);
