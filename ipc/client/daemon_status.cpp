#include "ipc/client/daemon_status.h"

#include "util/fd.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <thread>

#include <sys/stat.h>

namespace
{

using Answer = DaemonStatus::Answer;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds look_interval{10};

// Empty with the reason in errno when it cannot be read.
std::string read_whole(const std::string &path)
{
    const Fd file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    std::string text;
    char part[4096];
    for (ssize_t length; file && (length = read(file.get(), part, sizeof part)) > 0;)
        text.append(part, static_cast<std::size_t>(length));
    return text;
}

DaemonStatus parse(std::string_view text)
{
    DaemonStatus status{Answer::Answered, "", {}};
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        const std::size_t colon = line.find(": ");
        if (colon != line.npos)
            status.lines.emplace_back(line.substr(0, colon), line.substr(colon + 2));
    }
    return status;
}

// Whether the process that the PID file names is there.
bool lives(const std::string &directory)
{
    const std::string text = read_whole(directory + "/pid");
    pid_t process = 0;
    std::from_chars(text.data(), text.data() + text.size(), process);
    return process > 0 && (kill(process, 0) == 0 || errno == EPERM);
}

DaemonStatus unanswered(Answer answer, const std::string &reason)
{
    return {answer, reason, {}};
}

DaemonStatus refused(const std::string &path)
{
    return unanswered(Answer::Refused, path + ": " + std::strerror(errno));
}

DaemonStatus nobody_listens(const std::string &directory)
{
    if (lives(directory))
        return unanswered(Answer::Deaf, "it takes no requests: it starts or ends, or has lost " +
                                            directory + "/ctrl");
    return unanswered(Answer::Gone, "nobody listens at " + directory + "/ctrl");
}

bool is_fifo(const Fd &file)
{
    struct stat status;
    return fstat(file.get(), &status) == 0 && S_ISFIFO(status.st_mode);
}

// Tells one file from the next.
auto identity(const DaemonStatus &status)
{
    return std::pair(status.value("va.process"), status.value("va.writes"));
}

// What is in `path` when it is no longer `before`.
DaemonStatus wait_for_another(const std::string &path, const DaemonStatus &before,
                              std::chrono::milliseconds patience)
{
    const auto end = Clock::now() + patience;
    for (;;) {
        errno = 0;
        DaemonStatus status = parse(read_whole(path));
        if (errno == EACCES)
            return refused(path);
        if (!status.lines.empty() && identity(status) != identity(before))
            return status;
        if (Clock::now() >= end)
            return unanswered(Answer::None, "no answer in time");
        std::this_thread::sleep_for(look_interval);
    }
}

} // namespace

std::string_view DaemonStatus::value(std::string_view key) const
{
    const auto line = std::ranges::find(lines, key, [](const auto &item) { return item.first; });
    return line == lines.end() ? std::string_view() : line->second;
}

DaemonStatus ask_daemon_status(const std::string &directory, std::chrono::milliseconds patience)
{
    constexpr std::string_view request = "status\n";
    const std::string path = directory + "/status";
    const std::string fifo = directory + "/ctrl";
    const DaemonStatus before = parse(read_whole(path));
    const Fd control(open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!control && (errno == ENXIO || errno == ENOENT || errno == ENOTDIR))
        return nobody_listens(directory);
    if (!control)
        return refused(fifo);
    if (!is_fifo(control))
        return unanswered(Answer::Refused, fifo + " is no FIFO");
    if (write(control.get(), request.data(), request.size()) < 0)
        return errno == EAGAIN ? unanswered(Answer::None, "it does not read its requests")
                               : nobody_listens(directory);
    return wait_for_another(path, before, patience);
}
