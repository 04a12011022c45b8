#include "video/say.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

void say(const char *format, ...)
{
    std::array<char, 1000> text{};
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    std::ranges::replace(text, '\n', ' ');
    std::fprintf(stderr, "va_video: %s\n", text.data());
}
