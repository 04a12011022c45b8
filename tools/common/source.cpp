#include "tools/common/source.h"

#include "util/text.h"

#include <algorithm>

#include <sys/un.h>

namespace va
{

namespace
{

constexpr char group[] = "Where from, and how long:";

double parse_pace(const char *text)
{
    constexpr double slowest = 0.001;
    constexpr double fastest = 1000;
    const double pace = parse_decimal(text, 0, fastest, "pace");
    return pace > 0 ? std::max(pace, slowest) : 0;
}

} // namespace

std::chrono::milliseconds parse_time(const char *text)
{
    constexpr double shortest = 0.001;
    constexpr double longest = 1e9;
    const double seconds = parse_decimal(text, shortest, longest, "number of seconds");
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::duration<double>(seconds));
}

OptionTable source_options(Source &source)
{
    return {
        {group, 'd', "directory", "DIR", "of the sockets, default " VAIPC_RUN_DIR,
         [&](const char *text) { source.directory = text; }},
        {group, 'r', "read", "FILE", "the records of a file that va_dump -w wrote",
         [&](const char *text) { source.capture = text; }},
        {group, 0, "pace", "NUMBER",
         formatted("speed relative to their arrival, 0: all at once; default %.0f", source.pace),
         [&](const char *text) { source.pace = parse_pace(text); }},
        {group, 'n', "count", "NUMBER", "end after this many records",
         [&](const char *text) { source.count = parse_count(text, "number of records"); }},
        {group, 'W', "seconds", "NUMBER", "end after this long",
         [&](const char *text) { source.time_limit = parse_time(text); }},
    };
}

void check(const Source &source)
{
    constexpr std::size_t longest_name = sizeof "/vmf"; // with the terminator
    if (source.directory.size() + longest_name > sizeof(sockaddr_un::sun_path))
        throw WrongUse("the directory's name is too long for a socket");
}

} // namespace va
