#pragma once

#include "tools/text_printer.h"

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

// The command line of va_dump.

struct Options {
    enum class Output { Text, Json, Figures };

    Output output = Output::Text;
    WordStyle style;
    std::string directory;                   // of the sockets
    std::vector<const StreamKind *> streams; // each once, in the order of STREAM_KINDS
    std::uint64_t count = std::numeric_limits<std::uint64_t>::max();
    std::optional<std::chrono::milliseconds> time_limit;
    std::string capture; // to be read instead of the sockets, unless empty
    std::string copy;    // capture to be written, unless empty
    std::string picture; // to be kept up to date, unless empty
    enum class Request { Run, Help, Version } request = Request::Run;
};

// Nothing when the command line is wrong, which is then said on standard error.
std::optional<Options> parse_options(int argc, char **argv);

// How va_dump is used, for people.
extern const char USAGE[];
