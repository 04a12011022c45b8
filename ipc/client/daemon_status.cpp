#include "ipc/client/daemon_status.h"

#include "util/fd.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <thread>

#include <sys/ioctl.h>
#include <sys/stat.h>

namespace
{

using Answer = DaemonStatus::Answer;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds look_interval{10};
constexpr char no_answer[] = "no answer in time";

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

// The process that the PID file names; 0 when there is none.
pid_t recorded_process(const std::string &directory)
{
    const std::string text = read_whole(directory + "/pid");
    pid_t process = 0;
    std::from_chars(text.data(), text.data() + text.size(), process);
    return std::max(process, 0);
}

bool is_there(pid_t process)
{
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
    if (is_there(recorded_process(directory)))
        return unanswered(Answer::Deaf, "it takes no requests: it starts or ends, or has lost " +
                                            directory + "/ctrl");
    return unanswered(Answer::Gone, "nobody listens at " + directory + "/ctrl");
}

bool is_fifo(const Fd &file)
{
    struct stat status;
    return fstat(file.get(), &status) == 0 && S_ISFIFO(status.st_mode);
}

// Waits for room where other writers are many. False when the daemon has gone meanwhile (EPIPE), or
// the FIFO stays full (EAGAIN).
bool request_status(const Fd &control, std::chrono::milliseconds patience)
{
    constexpr std::string_view request = "status\n";
    const auto end = Clock::now() + patience;
    while (write(control.get(), request.data(), request.size()) < 0) {
        if (errno != EAGAIN || Clock::now() >= end)
            return false;
        std::this_thread::sleep_for(look_interval / 10);
    }
    return true;
}

DaemonStatus not_requested(const std::string &directory)
{
    return errno == EAGAIN ? unanswered(Answer::None, "it does not read its requests")
                           : nobody_listens(directory);
}

bool is_empty(const Fd &fifo)
{
    int waiting = 0;
    return ioctl(fifo.get(), FIONREAD, &waiting) == 0 && waiting == 0;
}

// Tells one file from the next.
auto identity(const DaemonStatus &status)
{
    return std::pair(status.value("va.process"), status.value("va.writes"));
}

// What is in `path` when it is no longer `before`; Unwritten when the request was taken, but
// nothing came of it.
DaemonStatus wait_for_another(const std::string &path, const DaemonStatus &before,
                              const Fd &control, std::chrono::milliseconds patience)
{
    const auto end = Clock::now() + patience;
    bool taken = false; // seen once: what others ask may be waiting at the end
    for (;;) {
        errno = 0;
        DaemonStatus status = parse(read_whole(path));
        if (errno == EACCES)
            return refused(path);
        if (!status.lines.empty() && identity(status) != identity(before))
            return status;
        taken = taken || is_empty(control);
        if (Clock::now() >= end)
            return unanswered(taken ? Answer::Unwritten : Answer::None, no_answer);
        std::this_thread::sleep_for(look_interval);
    }
}

// Asks twice when the first request is taken but not answered: one that has hung since leaves the
// second where it is.
DaemonStatus ask(const std::string &directory, const DaemonStatus &before, const Fd &control,
                 std::chrono::milliseconds patience)
{
    const std::string path = directory + "/status";
    if (!request_status(control, patience))
        return not_requested(directory);
    DaemonStatus status = wait_for_another(path, before, control, patience / 2);
    const bool taken = status.answer == Answer::Unwritten;
    if (!taken && status.answer != Answer::None)
        return status;
    if (taken && !request_status(control, patience / 2))
        return not_requested(directory);
    status = wait_for_another(path, before, control, patience - patience / 2);
    if (status.answer != Answer::Unwritten)
        return status;
    const pid_t process = recorded_process(directory); // none where that could not be written
    if (!taken || (process > 0 && !is_there(process)))
        return unanswered(Answer::None, no_answer);
    return unanswered(Answer::Unwritten, "its log says why");
}

} // namespace

std::string_view DaemonStatus::value(std::string_view key) const
{
    const auto line = std::ranges::find(lines, key, [](const auto &item) { return item.first; });
    return line == lines.end() ? std::string_view() : line->second;
}

DaemonStatus ask_daemon_status(const std::string &directory, std::chrono::milliseconds patience)
{
    const std::string fifo = directory + "/ctrl";
    const DaemonStatus before = parse(read_whole(directory + "/status"));
    const Fd control(open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!control && (errno == ENXIO || errno == ENOENT || errno == ENOTDIR))
        return nobody_listens(directory);
    if (!control)
        return refused(fifo);
    if (!is_fifo(control))
        return unanswered(Answer::Refused, fifo + " is no FIFO");
    return ask(directory, before, control, patience);
}
