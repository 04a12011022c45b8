#include "va/output.h"

#include "util/fd.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <type_traits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

std::atomic<std::uint32_t> lost_lines{0};

// Puts a pipe opened anew in the descriptor's place: its mode is not shared with whoever else
// writes into the pipe. A child inherits it. False where that is not allowed, or nobody reads.
bool open_anew(int fd)
{
    char path[32];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    const Fd own(open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    return own && dup2(own.get(), fd) == fd;
}

void keep_from_blocking(int fd)
{
    struct stat status;
    if (fstat(fd, &status) != 0)
        return;
    const bool is_pipe = S_ISFIFO(status.st_mode);
    if (S_ISSOCK(status.st_mode) || (is_pipe && !open_anew(fd)))
        va::set_non_blocking(fd);
}

// Writes what it can, and says that it wrote all: of what is left over a stream would lose the next
// line, too.
ssize_t write_or_lose(void *, const char *text, std::size_t size)
{
    const ssize_t written = write(STDOUT_FILENO, text, size);
    const char *const rest = text + std::max<ssize_t>(written, 0);
    lost_lines += static_cast<std::uint32_t>(std::count(rest, text + size, '\n'));
    return static_cast<ssize_t>(size);
}

// Where the C library does not let its stream be replaced, lines are lost uncounted.
template <class Stream>
void replace(Stream &standard, FILE *by)
{
    if constexpr (std::is_assignable_v<Stream &, FILE *>)
        standard = by;
    else
        std::fclose(by);
}

} // namespace

void keep_output_from_blocking()
{
    keep_from_blocking(STDOUT_FILENO);
    keep_from_blocking(STDERR_FILENO);
    cookie_io_functions_t functions{};
    functions.write = write_or_lose;
    if (FILE *const counted = fopencookie(nullptr, "w", functions))
        replace(stdout, counted);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
}

std::uint32_t lost_output_lines()
{
    return lost_lines;
}
