#include "tools/common/text.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace
{

using TimePoint = std::chrono::system_clock::time_point;

std::tm local_time(TimePoint time)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(
        std::chrono::floor<std::chrono::seconds>(time)); // a time before 1970 too
    std::tm local{};
    localtime_r(&seconds, &local);
    return local;
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

std::string time_of_day(TimePoint time)
{
    const std::tm local = local_time(time);
    return formatted("%02d:%02d:%02d", local.tm_hour, local.tm_min, local.tm_sec);
}

std::string clock_text(TimePoint time)
{
    return time_of_day(time) + milliseconds_text(time);
}

std::string iso_text(TimePoint time)
{
    constexpr int first_year = 1900; // of std::tm, whose months begin with 0
    const std::tm local = local_time(time);
    const long minutes = std::abs(local.tm_gmtoff) / 60;
    return formatted("%04d-%02d-%02dT", first_year + local.tm_year, 1 + local.tm_mon,
                     local.tm_mday) +
           clock_text(time) +
           formatted("%c%02ld:%02ld", local.tm_gmtoff < 0 ? '-' : '+', minutes / 60, minutes % 60);
}

std::string decimal_text(std::uint32_t word, const Field &field)
{
    return field.is_signed ? std::to_string(static_cast<std::int32_t>(word)) : std::to_string(word);
}
