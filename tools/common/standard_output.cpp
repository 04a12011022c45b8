#include "tools/common/standard_output.h"

#include "tools/common/stop.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string_view>
#include <system_error>

#include <poll.h>
#include <unistd.h>

namespace
{

// False when it has to be given up.
bool wait_until_writable(int descriptor)
{
    pollfd polled{descriptor, POLLOUT, 0};
    while (poll(&polled, 1, 0) <= 0) {
        if (must_stop())
            return false;
        poll(&polled, 1, patience_ms());
    }
    return true;
}

// The error, 0 or, when it has to be given up, EPIPE. What is writable takes so many bytes at once.
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

} // namespace

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
