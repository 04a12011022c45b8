#include "va/run_dir.h"

#include "va/log.h"
#include "va/paths.h"
#include "va/streams.h"
#include "va/trust.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Sentences, one behind the other; what does not fit is cut off.
class Sentences
{
public:
    [[gnu::format(printf, 2, 3)]] void add(const char *format, ...)
    {
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(text_.data() + length_, text_.size() - length_, format, arguments);
        va_end(arguments);
        length_ = std::strlen(text_.data());
    }
    const char *text() const { return text_.data(); }

private:
    std::array<char, 2048> text_{};
    std::size_t length_ = 0;
};

// Null when there is nothing wrong. The modes of sockets do not count: they are made anew.
const char *fault(const struct stat &status, mode_t kind)
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

// Nothing there is no fault.
void add_fault(Sentences &faults, const char *path, mode_t kind)
{
    struct stat status;
    if (const char *const found = lstat(path, &status) == 0 ? fault(status, kind) : nullptr)
        faults.add("%s %s. ", path, found);
}

Sentences all_faults()
{
    Sentences faults;
    add_fault(faults, va_run_dir, S_IFDIR);
    if (faccessat(AT_FDCWD, va_run_dir, W_OK | X_OK, AT_EACCESS) != 0)
        faults.add("%s cannot be written: %s. ", va_run_dir, std::strerror(errno));
    add_fault(faults, va_pid_path, S_IFREG);
    add_fault(faults, va_ctrl_path, S_IFIFO);
    for (const VaStream &stream : va_streams)
        add_fault(faults, stream.path, S_IFSOCK);
    return faults;
}

bool same_time(const timespec &a, const timespec &b)
{
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// Throws away what is in the FIFO, unless it was written to after it was as `before`: its opening
// lets a writer through that waited for it, who may have sent his line by now. What else lies there
// then stays, too.
void drain(const Fd &fifo, const struct stat &before)
{
    int left = 0;
    struct stat now;
    if (ioctl(fifo.get(), FIONREAD, &left) != 0 || fstat(fifo.get(), &now) != 0 ||
        !same_time(now.st_mtim, before.st_mtim))
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

} // namespace

void check_run_dir()
{
    if (access(va_run_dir, F_OK) != 0) {
        log_error(
            "%s: %s. There is no PID file, and no hand-over from one instance to the next. Make "
            "the directory before va starts.",
            va_run_dir, std::strerror(errno));
        return;
    }
    const Sentences faults = all_faults();
    if (*faults.text())
        log_error(
            "%sMake %s anew before va starts: owned by the user of va, not writable for others.",
            faults.text(), va_run_dir);
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
        std::remove(va_ctrl_path); // what stays, msg_start() tells of
    return kept;
}
