#include "tools/common/printing.h"

#include "tools/common/stop.h"
#include "util/text.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
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

using Convert = std::tm *(const std::time_t *, std::tm *); // localtime_r() or gmtime_r()

// `format` is std::strftime()'s.
std::string calendar_text(SystemTime time, const char *format, Convert *convert)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(
        std::chrono::floor<std::chrono::seconds>(time)); // a time before 1970 too
    std::tm calendar{};
    convert(&seconds, &calendar);
    char text[64];
    return {text, std::strftime(text, sizeof text, format, &calendar)};
}

std::string milliseconds_text(SystemTime time)
{
    const auto part = time - std::chrono::floor<std::chrono::seconds>(time);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(part).count();
    return formatted(".%03d", static_cast<int>(ms));
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

std::string time_of_day(SystemTime time)
{
    return calendar_text(time, "%T", localtime_r);
}

std::string clock_text(SystemTime time)
{
    return time_of_day(time) + milliseconds_text(time);
}

std::string iso_text(SystemTime time)
{
    std::string zone = calendar_text(time, "%z", localtime_r); // without a colon
    zone.insert(zone.size() - 2, 1, ':');
    return calendar_text(time, "%FT%T", localtime_r) + milliseconds_text(time) + zone;
}

std::string utc_text(SystemTime time)
{
    return calendar_text(time, "%FT%T", gmtime_r) + milliseconds_text(time) + 'Z';
}

} // namespace va
