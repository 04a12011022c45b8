#include "platform/sim/text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include <unistd.h>

namespace
{

void write_error(std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
        if (written >= 0)
            text.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            return; // standard error is gone: nobody is left to tell
    }
}

} // namespace

void say(const char *format, ...)
{
    constexpr std::string_view start = "sim: ";
    std::array<char, 4096> text;
    std::ranges::copy(start, text.begin());
    va_list arguments;
    va_start(arguments, format);
    const int length =
        std::vsnprintf(text.data() + start.size(), text.size() - start.size(), format, arguments);
    va_end(arguments);
    const auto end =
        std::min(start.size() + static_cast<std::size_t>(std::max(length, 0)), text.size() - 1);
    text[end] = '\n'; // in the place of the zero
    write_error({text.data(), end + 1});
}

Text &Text::line(std::string_view start)
{
    if (!text_.empty())
        text_ += '\n';
    text_ += "sim: ";
    text_ += start;
    return *this;
}

Text &Text::add(std::string_view words)
{
    text_ += ' ';
    text_ += words;
    return *this;
}

Text &Text::field(std::string_view name, std::int64_t value)
{
    add(name);
    text_ += '=' + std::to_string(value);
    return *this;
}

Text &Text::bits(std::string_view name, std::uint32_t value)
{
    std::array<char, sizeof "=0x00000000"> hexadecimal;
    std::snprintf(hexadecimal.data(), hexadecimal.size(), "=0x%x", value);
    add(name);
    text_ += hexadecimal.data();
    return *this;
}

Text &Text::point(std::int64_t x, std::int64_t y)
{
    return add('(' + std::to_string(x) + ',' + std::to_string(y) + ')');
}

void Text::print()
{
    text_ += '\n';
    write_error(text_);
}
