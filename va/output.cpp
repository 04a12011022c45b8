#include "va/output.h"

#include "util/fd.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <type_traits>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

enum class Kind { other, pipe, socket };

std::atomic<Kind> kinds[STDERR_FILENO + 1];
std::atomic<std::uint32_t> lost_lines{0};

// Puts a pipe opened anew in the descriptor's place, of which this process alone has the mode: with
// others it is shared. A child inherits it. Where that is not allowed, or nobody reads, a look
// before each write has to do.
void open_anew(int fd)
{
    char path[32];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    const Fd own(open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    if (own)
        dup2(own.get(), fd);
}

Kind kind_of(int fd)
{
    struct stat status;
    if (fstat(fd, &status) != 0)
        return Kind::other;
    if (S_ISSOCK(status.st_mode))
        return Kind::socket;
    return S_ISFIFO(status.st_mode) ? Kind::pipe : Kind::other;
}

void keep_from_blocking(int fd)
{
    kinds[fd] = kind_of(fd);
    if (kinds[fd] == Kind::pipe)
        open_anew(fd);
}

// A pipe that can be written to has room for this much.
constexpr std::size_t piece_size = PIPE_BUF;

ssize_t write_piece(int fd, const char *text, std::size_t size)
{
    if (kinds[fd] == Kind::socket)
        return send(fd, text, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    pollfd writable{fd, POLLOUT, 0};
    if (kinds[fd] == Kind::pipe && poll(&writable, 1, 0) == 0)
        return -1;
    return write(fd, text, size);
}

// Returns how many bytes were taken. What is left of a line that was begun is given up with it.
std::size_t write_some(int fd, const char *text, std::size_t size)
{
    std::size_t done = 0;
    while (done < size) {
        const ssize_t written = write_piece(fd, text + done, std::min(size - done, piece_size));
        if (written <= 0)
            break;
        done += static_cast<std::size_t>(written);
    }
    return done;
}

template <int fd>
ssize_t write_or_lose(void *, const char *text, std::size_t size)
{
    write_output(fd, text, size);
    return static_cast<ssize_t>(
        size); // of what is left over a stream would lose the next line, too
}

// Where the C library does not let its stream be replaced, printing waits.
template <class Stream>
void replace(Stream &standard, cookie_write_function_t *write, int mode)
{
    cookie_io_functions_t functions{};
    functions.write = write;
    if constexpr (std::is_assignable_v<Stream &, FILE *>) {
        if (FILE *const stream = fopencookie(nullptr, "w", functions))
            standard = stream;
    }
    std::setvbuf(standard, nullptr, mode, 0);
}

} // namespace

void keep_output_from_blocking()
{
    keep_from_blocking(STDOUT_FILENO);
    keep_from_blocking(STDERR_FILENO);
    replace(stdout, write_or_lose<STDOUT_FILENO>, _IOLBF);
    replace(stderr, write_or_lose<STDERR_FILENO>, _IONBF);
}

void write_output(int fd, const char *text, std::size_t size)
{
    static std::atomic<bool> torn[STDERR_FILENO + 1];
    if (torn[fd] && write_some(fd, "\n", 1) == 1)
        torn[fd] = false;
    const std::size_t done = write_some(fd, text, size);
    if (done == size)
        return;
    if (done > 0)
        torn[fd] = text[done - 1] != '\n';
    if (fd == STDOUT_FILENO)
        lost_lines += static_cast<std::uint32_t>(std::count(text + done, text + size, '\n'));
}

std::uint32_t lost_output_lines()
{
    return lost_lines;
}
