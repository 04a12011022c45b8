#pragma once

#include <string>

// What the programs print. Neither a reader who has stopped reading nor one who is gone keeps a
// program that has to end.

// Nobody reads standard output any more, or not before the program has to end: a common end.
struct OutputEnded {
};

// Text on standard output, at once. A line of at most 4096 bytes is printed whole or not at all,
// unless a signal comes just then. Throw OutputEnded, and std::system_error.
void write_text(const std::string &text);
void write_line(const std::string &line);

// A line on standard error, with the program's name in front; nothing when that is not read.
void say(const std::string &text);
