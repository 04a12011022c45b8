#include "va/run_dir.h"

#include "va/log.h"
#include "va/paths.h"
#include "va/streams.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string_view>

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

bool is_trusted(const struct stat &status)
{
    return status.st_uid == 0 || status.st_uid == geteuid();
}

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

// Neither a frame nor a zero byte among them, which msg_read() might wait on for ever.
bool is_whole_lines(std::string_view text)
{
    constexpr std::string_view others("$\0", 2);
    return text.ends_with('\n') && text.find_first_of(others) == std::string_view::npos;
}

void put_back(std::string_view text)
{
    const Fd fifo(open(va_ctrl_path, O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (fifo) {
        [[maybe_unused]] const ssize_t written = write(fifo.get(), text.data(), text.size());
    }
}

// Throws away what is in the FIFO now, but for a few whole lines: a writer that the opening has let
// through may have been first.
void drain(const Fd &fifo)
{
    int left = 0;
    if (ioctl(fifo.get(), FIONREAD, &left) != 0)
        return;
    std::array<char, PIPE_BUF> part;
    const bool is_little = static_cast<std::size_t>(left) < part.size();
    while (left > 0) {
        const ssize_t got =
            read(fifo.get(), part.data(), std::min(part.size(), static_cast<std::size_t>(left)));
        if (got <= 0)
            return;
        left -= static_cast<int>(got);
        const std::string_view text(part.data(), static_cast<std::size_t>(got));
        if (is_little && is_whole_lines(text))
            put_back(text);
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
        kept.reset(open(va_ctrl_path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (kept)
        drain(kept);
    else
        std::remove(va_ctrl_path); // what stays, msg_start() tells of
    return kept;
}
