#pragma once

#include "tools/common/source.h"
#include "tools/va_dump/filters.h"

#include <cstdint>
#include <span>
#include <string>

// The command line of va_dump.
namespace va::dump
{

struct Options {
    Source source;
    bool status = false;  // of the daemon, in place of its records
    bool metrics = false; // likewise
    bool reload = false;  // of the daemon's settings
    bool events = false;  // in place of records
    bool json = false;
    bool labels = false;
    bool figures = false; // in place of records
    bool hexadecimal = false;
    Elapsed period = Elapsed::max();        // of the figures
    std::string copy;                       // capture to be written, unless empty
    std::optional<std::uint64_t> copy_size; // bytes, at which it is renamed
    Filters filters;

    bool asks_daemon() const { return status || metrics || reload; }
};

// Returns false when the program is asked about itself, which is then answered. Throws WrongUse.
bool parse_options(std::span<char *> arguments, Options &options);

} // namespace va::dump
