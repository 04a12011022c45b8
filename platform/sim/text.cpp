#include "platform/sim/text.h"

#include <array>
#include <cerrno>
#include <cstdio>

#include <unistd.h>

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
    for (std::string_view rest = text_; !rest.empty();) {
        const ssize_t written = write(STDERR_FILENO, rest.data(), rest.size());
        if (written >= 0)
            rest.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            return; // standard error is gone: nobody is left to tell
    }
}
