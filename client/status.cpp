#include "client/status.h"

#include "util/fd.h"
#include "util/text.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <thread>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace va
{

namespace
{

using Answer = DaemonStatus::Answer;

constexpr std::chrono::milliseconds poll_interval{10};

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
    DaemonStatus status{Answer::Answered};
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        const std::size_t colon = line.find(": ");
        if (colon != line.npos)
            status.lines.emplace_back(line.substr(0, colon), line.substr(colon + 2));
    }
    return status;
}

std::pair<std::string, std::string> identity_of(const DaemonStatus &status)
{
    return {std::string(status.value("va.process")), std::string(status.value("va.writes"))};
}

// Whether the process that the PID file names is there; nothing when it names none.
std::optional<bool> has_process(const std::string &directory)
{
    const std::string text = read_whole(directory + "/pid");
    pid_t process = 0;
    std::from_chars(text.data(), text.data() + text.size(), process);
    if (process <= 0)
        return std::nullopt;
    return kill(process, 0) == 0 || errno == EPERM;
}

DaemonStatus nobody_listens(const std::string &directory)
{
    if (has_process(directory).value_or(false))
        return {Answer::Deaf,
                "it takes no requests: it starts or ends, or has lost " + directory + "/ctrl"};
    return {Answer::Gone, "nobody listens at " + directory + "/ctrl"};
}

bool is_empty(const Fd &fifo)
{
    int waiting = 0;
    return ioctl(fifo.get(), FIONREAD, &waiting) == 0 && waiting == 0;
}

bool write_line(const Fd &control, std::string_view line)
{
    return write(control.get(), line.data(), line.size()) >= 0; // of a FIFO whole or not at all
}

} // namespace

std::string_view DaemonStatus::value(std::string_view key) const
{
    const auto line = std::ranges::find(lines, key, [](const auto &item) { return item.first; });
    return line == lines.end() ? std::string_view("") : line->second;
}

std::vector<std::string> DaemonStatus::names_below(std::string_view beginning) const
{
    std::vector<std::string> names;
    for (const auto &[key, value] : lines) {
        if (!key.starts_with(beginning))
            continue;
        const std::string name =
            key.substr(beginning.size(), key.find('.', beginning.size()) - beginning.size());
        if (std::ranges::find(names, name) == names.end())
            names.push_back(name);
    }
    return names;
}

struct StatusQuery::Request {
    using Clock = std::chrono::steady_clock;

    void open_control();
    void send();
    std::optional<DaemonStatus> read_answer();
    DaemonStatus time_is_up() const;

    std::string directory;
    std::pair<std::string, std::string> before; // by which an answer is recognised as a new one
    Clock::time_point end;
    Clock::time_point second; // when the request is repeated
    Fd control = {};
    int sent = 0;
    bool waits = false; // while the FIFO is full, as with many writers
    bool taken = false; // the last request: seen once, since others may ask behind it
    std::optional<DaemonStatus> answer = {};
};

void StatusQuery::Request::open_control()
{
    const std::string fifo = directory + "/ctrl";
    control = Fd(open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!control && (errno == ENXIO || errno == ENOENT || errno == ENOTDIR))
        answer = nobody_listens(directory);
    else if (!control)
        answer = {Answer::Refused, fifo + ": " + error_text(errno)};
    else if (!is_fifo(control.get()))
        answer = {Answer::Refused, fifo + " is no FIFO"};
    else
        send();
}

void StatusQuery::Request::send()
{
    waits = !write_line(control, "status\n");
    if (waits && errno != EAGAIN) // the daemon has gone meanwhile
        answer = nobody_listens(directory);
    if (waits)
        return;
    ++sent;
    taken = false;
}

// Asks twice when the first request is taken but not answered: one that has hung since leaves the
// second where it is.
std::optional<DaemonStatus> StatusQuery::Request::read_answer()
{
    const std::string path = directory + "/status";
    errno = 0;
    DaemonStatus status = parse(read_whole(path));
    if (errno == EACCES)
        return DaemonStatus{Answer::Refused, path + ": " + error_text(EACCES)};
    if (!status.lines.empty() && identity_of(status) != before)
        return status;
    taken = taken || is_empty(control);
    const auto now = Clock::now();
    if (waits || (taken && sent == 1 && now >= second))
        send();
    if (answer || now < end)
        return answer;
    return time_is_up();
}

DaemonStatus StatusQuery::Request::time_is_up() const
{
    constexpr int both = 2;
    if (waits)
        return {Answer::None, "it does not read its requests"};
    // There may be no PID file where the status cannot be written.
    if (sent < both || !taken || !has_process(directory).value_or(true))
        return {Answer::None, "no answer in time"};
    return {Answer::Unwritten, "its log says why"};
}

StatusQuery::StatusQuery(const std::string &directory, std::chrono::milliseconds timeout)
{
    const auto now = Request::Clock::now();
    request_.reset(new Request{directory, identity_of(parse(read_whole(directory + "/status"))),
                               now + timeout, now + timeout / 2});
    request_->open_control();
}

StatusQuery::StatusQuery(StatusQuery &&) noexcept = default;
StatusQuery &StatusQuery::operator=(StatusQuery &&) noexcept = default;
StatusQuery::~StatusQuery() = default;

std::optional<DaemonStatus> StatusQuery::poll()
{
    if (!request_->answer)
        request_->answer = request_->read_answer();
    return request_->answer;
}

DaemonStatus ask_daemon_status(const std::string &directory, std::chrono::milliseconds timeout)
{
    StatusQuery query(directory, timeout);
    for (;;) {
        if (const auto answer = query.poll())
            return *answer;
        std::this_thread::sleep_for(poll_interval);
    }
}

DaemonStatus reload_settings(const std::string &directory, std::chrono::milliseconds timeout)
{
    const auto end = std::chrono::steady_clock::now() + timeout;
    DaemonStatus status = ask_daemon_status(directory);
    const std::string before(status.value("settings.reloads"));
    const std::string fifo = directory + "/ctrl";
    const Fd control(open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (status.answer != Answer::Answered && status.answer != Answer::Unwritten)
        return status;
    while (!control || !write_line(control, "reconfig\n")) {
        if (!control || errno != EAGAIN)
            return nobody_listens(directory);
        if (std::chrono::steady_clock::now() >= end)
            return {Answer::None, "it does not read its requests"};
        std::this_thread::sleep_for(poll_interval);
    }
    if (status.answer == Answer::Unwritten)
        return {Answer::Unwritten,
                "a reload is requested; its log says why nothing is known of it"};
    do {
        status = ask_daemon_status(directory);
        const bool done = status.value("settings.reloads") != before;
        if (status.answer != Answer::Answered || done || status.value("analytics.state") == "ended")
            return status;
    } while (std::chrono::steady_clock::now() < end);
    return {Answer::None, "the settings were not read again in time"};
}

} // namespace va
