#include "platform/sim/text.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include <unistd.h>

void Line::add(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    add_list(format, arguments);
    va_end(arguments);
}

void Line::add_list(const char *format, va_list arguments)
{
    const std::size_t room = text_.size() - length_;
    const int wanted = std::vsnprintf(text_.data() + length_, room, format, arguments);
    length_ += std::min(static_cast<std::size_t>(std::max(wanted, 0)), room - 1);
}

void Line::print()
{
    text_[length_] = '\n'; // in the place of the terminating zero
    for (std::string_view rest(text_.data(), length_ + 1); !rest.empty();) {
        const ssize_t written = write(STDERR_FILENO, rest.data(), rest.size());
        if (written >= 0)
            rest.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            return; // standard error is gone: nobody is left to tell
    }
}

void say(const char *format, ...)
{
    Line line;
    va_list arguments;
    va_start(arguments, format);
    line.add_list(format, arguments);
    va_end(arguments);
    line.print();
}
