#include "tools/common/printing.h"

#include "tools/common/stop.h"
#include "util/text.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <string_view>
#include <system_error>

#include <poll.h>
#include <unistd.h>

namespace va
{

namespace
{

// False when it has to be given up.
bool wait_until_writable(int descriptor)
{
    pollfd polled{descriptor, POLLOUT, 0};
    while (poll(&polled, 1, 0) <= 0) {
        if (must_stop())
            return false;
        poll(&polled, 1, timeout_ms());
    }
    return true;
}

// `convert` is localtime_r() or gmtime_r().
std::tm calendar_time(SystemTime time, std::tm *(*convert)(const std::time_t *, std::tm *))
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(
        std::chrono::floor<std::chrono::seconds>(time)); // a time before 1970 too
    std::tm calendar{};
    convert(&seconds, &calendar);
    return calendar;
}

std::string milliseconds_text(SystemTime time)
{
    const auto part = time - std::chrono::floor<std::chrono::seconds>(time);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(part).count();
    return formatted(".%03d", static_cast<int>(ms));
}

std::string day_text(const std::tm &calendar)
{
    return formatted("%02d:%02d:%02d", calendar.tm_hour, calendar.tm_min, calendar.tm_sec);
}

std::string date_time_text(const std::tm &calendar, SystemTime time)
{
    constexpr int first_year = 1900; // of std::tm, whose months begin with 0
    return formatted("%04d-%02d-%02dT", first_year + calendar.tm_year, 1 + calendar.tm_mon,
                     calendar.tm_mday) +
           day_text(calendar) + milliseconds_text(time);
}

} // namespace

// What is writable takes PIPE_BUF bytes at once.
int write_all(int descriptor, std::string_view text)
{
    while (!text.empty()) {
        if (!wait_until_writable(descriptor))
            return EPIPE;
        const ssize_t written =
            write(descriptor, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
        if (written < 0 && errno != EINTR && errno != EAGAIN)
            return errno;
        text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
    return 0;
}

void write_text(const std::string &text)
{
    const int error = write_all(STDOUT_FILENO, text);
    if (error == EPIPE)
        throw OutputEnded();
    if (error != 0)
        throw std::system_error(error, std::generic_category(), "standard output");
}

void write_line(const std::string &line)
{
    write_text(line + '\n');
}

void say(const std::string &text)
{
    write_all(STDERR_FILENO, program_invocation_short_name + (": " + text + '\n'));
}

std::string clock_text(SystemTime time)
{
    return day_text(calendar_time(time, localtime_r)) + milliseconds_text(time);
}

std::string iso_text(SystemTime time)
{
    const std::tm local = calendar_time(time, localtime_r);
    const long minutes = std::abs(local.tm_gmtoff) / 60;
    return date_time_text(local, time) +
           formatted("%c%02ld:%02ld", local.tm_gmtoff < 0 ? '-' : '+', minutes / 60, minutes % 60);
}

std::string utc_text(SystemTime time)
{
    return date_time_text(calendar_time(time, gmtime_r), time) + 'Z';
}

} // namespace va
