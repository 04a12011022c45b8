#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Lines of the stand-in for standard error, each beginning "sim: " and written at once, so that
// those of two threads do not mix.

// One line, without the line end; what goes beyond 4 KiB is cut off.
[[gnu::format(printf, 1, 2)]] void say(const char *format, ...);

class Text
{
public:
    Text &line(std::string_view start);
    Text &add(std::string_view words);
    Text &field(std::string_view name, std::int64_t value);
    Text &bits(std::string_view name, std::uint32_t value); // in hexadecimal
    Text &point(std::int64_t x, std::int64_t y);

    // All lines in one write, so that those of two threads do not mix.
    void print();

private:
    std::string text_;
};
