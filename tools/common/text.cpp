#include "tools/common/text.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace
{

using TimePoint = std::chrono::system_clock::time_point;

// `convert` is localtime_r() or gmtime_r().
std::tm calendar_time(TimePoint time, std::tm *(*convert)(const std::time_t *, std::tm *))
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(
        std::chrono::floor<std::chrono::seconds>(time)); // a time before 1970 too
    std::tm calendar{};
    convert(&seconds, &calendar);
    return calendar;
}

std::string milliseconds_text(TimePoint time)
{
    const auto part = time - std::chrono::floor<std::chrono::seconds>(time);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(part).count();
    return formatted(".%03d", static_cast<int>(ms));
}

std::string day_text(const std::tm &calendar)
{
    return formatted("%02d:%02d:%02d", calendar.tm_hour, calendar.tm_min, calendar.tm_sec);
}

std::string date_time_text(const std::tm &calendar, TimePoint time)
{
    constexpr int first_year = 1900; // of std::tm, whose months begin with 0
    return formatted("%04d-%02d-%02dT", first_year + calendar.tm_year, 1 + calendar.tm_mon,
                     calendar.tm_mday) +
           day_text(calendar) + milliseconds_text(time);
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

std::string time_of_day(TimePoint time)
{
    return day_text(calendar_time(time, localtime_r));
}

std::string clock_text(TimePoint time)
{
    return time_of_day(time) + milliseconds_text(time);
}

std::string iso_text(TimePoint time)
{
    const std::tm local = calendar_time(time, localtime_r);
    const long minutes = std::abs(local.tm_gmtoff) / 60;
    return date_time_text(local, time) +
           formatted("%c%02ld:%02ld", local.tm_gmtoff < 0 ? '-' : '+', minutes / 60, minutes % 60);
}

std::string utc_text(TimePoint time)
{
    return date_time_text(calendar_time(time, gmtime_r), time) + 'Z';
}

std::string decimal_text(std::uint32_t word, const Field &field)
{
    return field.is_signed ? std::to_string(static_cast<std::int32_t>(word)) : std::to_string(word);
}
