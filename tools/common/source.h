#pragma once

#include "client/run_dir.h"
#include "client/streams.h"
#include "tools/common/options.h"

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace va
{

// Where a program's records come from, and for how long: all streams of the daemon that was built
// with this program, unless it is set otherwise.
struct Source {
    std::string directory = VAIPC_RUN_DIR; // of the sockets
    std::string capture;                   // to be read instead of the sockets, unless empty
    std::vector<Stream> streams{STREAMS.begin(), STREAMS.end()};     // each once, in this order
    std::uint64_t count = std::numeric_limits<std::uint64_t>::max(); // of records
    std::optional<std::chrono::milliseconds> time_limit;
    double pace = 0; // of a capture: relative to its own; 0: all at once
};

// The options that set it, which its values now are the defaults of. They are `source`'s, which
// must outlive them.
OptionTable source_options(Source &source);

// Seconds; throws WrongUse.
std::chrono::milliseconds parse_time(const char *text);

// Throws WrongUse when the sockets' names would be too long.
void check(const Source &source);

} // namespace va
