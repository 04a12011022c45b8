#include "tools/text.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <system_error>

namespace
{

using TimePoint = std::chrono::system_clock::time_point;

__attribute__((format(strftime, 2, 0))) std::string local_text(TimePoint time, const char *format)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(
        std::chrono::floor<std::chrono::seconds>(time)); // a time before 1970 too
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[64];
    text[std::strftime(text, sizeof text, format, &local)] = '\0';
    return text;
}

std::string milliseconds_text(TimePoint time)
{
    const auto part = time - std::chrono::floor<std::chrono::seconds>(time);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(part).count();
    return formatted(".%03d", static_cast<int>(ms));
}

} // namespace

std::string formatted(const char *format, ...)
{
    char text[256];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

std::string clock_text(TimePoint time)
{
    return local_text(time, "%H:%M:%S") + milliseconds_text(time);
}

std::string iso_text(TimePoint time)
{
    constexpr std::size_t minutes = 3; // of "+hhmm", where the colon goes
    return local_text(time, "%Y-%m-%dT%H:%M:%S") + milliseconds_text(time) +
           local_text(time, "%z").insert(minutes, ":");
}

std::string decimal_text(std::uint32_t word, const Field &field)
{
    return field.is_signed ? std::to_string(static_cast<std::int32_t>(word)) : std::to_string(word);
}

void write_line(const std::string &line)
{
    errno = 0;
    if (std::puts(line.c_str()) == EOF)
        throw std::system_error(errno, std::generic_category(), "standard output");
}
