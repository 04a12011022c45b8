#include "va/run_dir.h"

#include "event/loop.h"
#include "util/text.h"
#include "va/log.h"
#include "va/paths.h"
#include "va/pid_file.h"
#include "va/process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace va
{

namespace
{

// Null when there is nothing wrong. The modes of sockets do not count: they are made again.
const char *fault_of(const struct stat &status, mode_t kind)
{
    const bool lasts = kind != S_IFSOCK;
    if (S_ISLNK(status.st_mode))
        return "is a link";
    if ((status.st_mode & S_IFMT) != kind)
        return "is of the wrong kind";
    if (!is_trusted(status))
        return "belongs to another user";
    return lasts && (status.st_mode & S_IWOTH) ? "is writable for others" : nullptr;
}

// Empty when nothing is there, or nothing is wrong with it.
std::string fault_at(const char *path, mode_t kind)
{
    struct stat status;
    const char *const found = lstat(path, &status) == 0 ? fault_of(status, kind) : nullptr;
    return found ? formatted("%s %s. ", path, found) : std::string();
}

std::string all_faults()
{
    std::string faults = fault_at(va_run_dir, S_IFDIR);
    if (faccessat(AT_FDCWD, va_run_dir, W_OK | X_OK, AT_EACCESS) != 0)
        faults += formatted("%s cannot be written: %s. ", va_run_dir, std::strerror(errno));
    faults += fault_at(va_pid_path, S_IFREG) + fault_at(va_ctrl_path, S_IFIFO);
    for (const VaStream &stream : va_streams)
        faults += fault_at(stream.path, S_IFSOCK);
    return faults;
}

// Drops what is in the FIFO, unless it was written to since it was as `before`: opening it lets a
// writer through that waited for that, and its line may have come by now. Whatever else is there
// then stays, too.
void drain(const Fd &fifo, const struct stat &before)
{
    int left = 0;
    struct stat now;
    if (ioctl(fifo.get(), FIONREAD, &left) != 0 || fstat(fifo.get(), &now) != 0 ||
        now.st_mtim.tv_sec != before.st_mtim.tv_sec ||
        now.st_mtim.tv_nsec != before.st_mtim.tv_nsec)
        return;
    char part[4096];
    while (left > 0) {
        const ssize_t got =
            read(fifo.get(), part, std::min(sizeof part, static_cast<std::size_t>(left)));
        if (got <= 0)
            return;
        left -= static_cast<int>(got);
    }
}

using Identity = std::pair<dev_t, ino_t>;

// Nothing when nothing is there.
std::optional<Identity> identity_of(const char *path)
{
    struct stat status;
    if (lstat(path, &status) != 0)
        return {};
    return Identity(status.st_dev, status.st_ino);
}

struct Made {
    const char *path;
    std::optional<Identity> identity;
};

std::array<Made, 3 + std::size(va_streams)> all_made;
Made &pid_file = all_made[1]; // behind the directory
char fault[160];

// Null when all stand where they were made.
const Made *first_missing()
{
    for (const Made &made : all_made) {
        if (made.identity && identity_of(made.path) != made.identity)
            return &made;
    }
    return nullptr;
}

std::int32_t check_again(event_info *, void *)
{
    const bool is_logged = *fault != '\0';
    fault[0] = '\0';
    if (retry_pid_file())
        pid_file.identity = identity_of(va_pid_path);
    if (const Made *const missing = first_missing())
        std::snprintf(fault, sizeof fault, "%s %s", missing->path,
                      identity_of(missing->path) ? "is another one" : "is gone");
    else if (pid_file.identity && !is_own_pid_file())
        std::snprintf(fault, sizeof fault, "%s names another process", va_pid_path);
    if (*fault && !is_logged)
        log_error("%s: clients do not find this daemon any more. Start it again.", fault);
    return 0;
}

} // namespace

void check_run_dir()
try {
    if (access(va_run_dir, F_OK) != 0) {
        log_error(
            "%s: %s. There is no PID file, and no hand-over from one instance to the next. Make "
            "the directory before va starts.",
            va_run_dir, std::strerror(errno));
        return;
    }
    if (const std::string faults = all_faults(); !faults.empty())
        log_error(
            "%sMake %s again before va starts: owned by the user of va, not writable for others.",
            faults.c_str(), va_run_dir);
} catch (const std::bad_alloc &) {
    log_error("%s is not checked: memory is short.", va_run_dir);
}

Fd prepare_control_fifo()
{
    struct stat status;
    Fd kept;
    if (lstat(va_ctrl_path, &status) == 0 && S_ISFIFO(status.st_mode) && is_trusted(status))
        kept.reset(open(va_ctrl_path, O_RDWR | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (kept)
        drain(kept, status);
    else
        std::remove(va_ctrl_path); // msg_start() reports what stays
    return kept;
}

bool watch_run_dir(const VaContext &context)
{
    auto *made = all_made.begin();
    const auto add = [&](const char *path) { *made++ = {path, identity_of(path)}; };
    add(va_run_dir);
    add(va_pid_path);
    if (!is_own_pid_file())
        pid_file.identity.reset();
    struct stat status;
    if (lstat(va_ctrl_path, &status) == 0 && S_ISFIFO(status.st_mode))
        add(va_ctrl_path);
    for (const VaStream &stream : va_streams) {
        if (context.*stream.server)
            add(stream.path);
    }
    constexpr int interval_ms = 1000;
    return add_timer_event(interval_ms, EVENT_ENABLED, check_again, nullptr);
}

const char *run_dir_fault()
{
    return fault;
}

} // namespace va
