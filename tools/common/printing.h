#pragma once

#include "client/record.h"

#include <string>
#include <string_view>

// What the programs print. Neither a reader who has stopped reading nor one who is gone keeps a
// program that has to end.
namespace va
{

// Nobody reads standard output any more, or not before the program has to end: a common end.
struct OutputEnded {
};

// Writes all of `text`, also to what does not block. Returns 0, an error number, or EPIPE when the
// program has to end before it can be written.
int write_all(int descriptor, std::string_view text);

// Text on standard output, at once. A line of at most 4096 bytes is printed whole or not at all,
// unless a signal arrives just then. Throw OutputEnded, and std::system_error.
void write_text(const std::string &text);
void write_line(const std::string &line);

// A line on standard error, with the program's name in front; nothing when that is not read.
void say(const std::string &text);

// "14:02:03.123", local time.
std::string clock_text(SystemTime time);

// "2026-03-01T14:02:03.123+01:00" and "2026-03-01T13:02:03.123Z".
std::string iso_text(SystemTime time);
std::string utc_text(SystemTime time);

} // namespace va
