#pragma once

#include <array>
#include <cstdarg>
#include <cstddef>

// A line of the stand-in for standard error. It begins with "sim: "; what goes beyond 4 KiB is cut
// off.
class Line
{
public:
    Line() { add("sim: "); }

    [[gnu::format(printf, 2, 3)]] void add(const char *format, ...);
    [[gnu::format(printf, 2, 0)]] void add_list(const char *format, va_list arguments);

    // In one write, so that the lines of two threads do not mix.
    void print();

private:
    std::array<char, 4096> text_;
    std::size_t length_ = 0;
};

// Prints a whole line.
[[gnu::format(printf, 1, 2)]] void say(const char *format, ...);
