#pragma once

#include <cerrno>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// Descriptors, and pointers to what has an end of its own, as values. Private to this tree: the
// installed headers do not include it, so it is not in the way of what the library's users define.

namespace va
{

// Owns a descriptor; -1 is none. Converts to nothing but whether there is one, and that not by
// itself: get() is the number. Closing keeps errno, so a failure can be reported afterwards.
class Fd
{
public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    Fd(Fd &&other) noexcept : fd_(other.release()) {}
    Fd &operator=(Fd &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~Fd() { reset(); }

    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }
    [[nodiscard]] int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1)
    {
        const int error = errno;
        const int closed = std::exchange(fd_, fd);
        if (closed >= 0)
            close(closed);
        errno = error;
    }

private:
    int fd_ = -1;
};

template <auto end>
struct Ender {
    template <class T>
    void operator()(T *held) const
    {
        end(held);
    }
};

// Owns what `end` ends.
template <class T, auto end>
using Owner = std::unique_ptr<T, Ender<end>>;

// The same file, not as descriptor 0, for those to whom 0 reads as none; empty when that fails.
inline Fd above_zero(Fd fd)
{
    return fd.get() == 0 ? Fd(fcntl(fd.get(), F_DUPFD_CLOEXEC, 1)) : std::move(fd);
}

inline bool is_fifo(int fd)
{
    struct stat status;
    return fstat(fd, &status) == 0 && S_ISFIFO(status.st_mode);
}

inline bool set_non_blocking(int fd)
{
    const int flags = fcntl(fd, F_GETFL);
    return flags != -1 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) != -1;
}

// Opens /dev/null for each of standard input, output and error that is closed, so that no socket or
// file takes its number and receives what is printed. Before anything else is opened.
inline void open_standard_descriptors()
{
    int fd = 0;
    do {
        fd = open("/dev/null", O_RDWR); // without O_CLOEXEC: a child's standard descriptors too
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd > STDERR_FILENO)
        close(fd);
}

} // namespace va

using va::Fd;
