#include "va/log.h"

#include "util/fd.h"
#include "util/guarded.h"
#include "util/unix_address.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string_view>
#include <type_traits>

#include <fcntl.h>
#include <paths.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syslog.h>
#include <unistd.h>

namespace va
{

namespace
{

enum class Kind { Other, Pipe, Socket };

std::atomic<Kind> kinds[STDERR_FILENO + 1];
std::atomic<std::uint32_t> lost_lines{0};

// Opens a pipe again in the descriptor's place, so that its mode is this process's alone and not
// shared with others. A child inherits it. Where that is not allowed, or nobody reads, asking
// before each write has to do.
void reopen(int fd)
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
        return Kind::Other;
    if (S_ISSOCK(status.st_mode))
        return Kind::Socket;
    return S_ISFIFO(status.st_mode) ? Kind::Pipe : Kind::Other;
}

void keep_from_blocking(int fd)
{
    kinds[fd] = kind_of(fd);
    if (kinds[fd] == Kind::Pipe)
        reopen(fd);
}

// A pipe that can be written to takes this much.
constexpr std::size_t piece_size = PIPE_BUF;

ssize_t write_piece(int fd, const char *text, std::size_t size)
{
    if (kinds[fd] == Kind::Socket)
        return send(fd, text, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    pollfd writable{fd, POLLOUT, 0};
    if (kinds[fd] == Kind::Pipe && poll(&writable, 1, 0) == 0)
        return -1;
    return write(fd, text, size);
}

// Returns how many bytes were taken. The remainder of a line that was begun is lost, too.
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
    return static_cast<ssize_t>(size); // after a short write a stream would lose the next line, too
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

// Keeps the connection to the system log's socket; never waits for it.
class SystemLog
{
public:
    // False when it was not taken: there is no log, or nobody reads it.
    bool take(const char *line, std::size_t size)
    {
        const ScopedLock guard(lock_);
        return send_it(line, size) || (reconnect() && send_it(line, size));
    }

private:
    bool send_it(const char *line, std::size_t size) VA_REQUIRES(lock_)
    {
        return socket_ && send(socket_.get(), line, size, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
    }

    // The log may have been started again.
    bool reconnect() VA_REQUIRES(lock_)
    {
        const auto address = unix_address(_PATH_LOG);
        socket_.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        return socket_ && connect(socket_.get(), reinterpret_cast<const sockaddr *>(&*address),
                                  sizeof *address) == 0;
    }

    std::mutex lock_;
    Fd socket_ VA_GUARDED_BY(lock_);
};

// Never deleted: the processing thread may still be on its last lines at exit.
SystemLog &system_log()
{
    static auto &log = *new SystemLog;
    return log;
}

void print_on_console(const char *text, std::size_t size)
{
    const Fd console(open(_PATH_CONSOLE, O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (console) {
        [[maybe_unused]] const ssize_t written = write(console.get(), text, size);
    }
}

// Like syslog() with LOG_CONS and LOG_PERROR, but never waits.
void log_line(const char *text)
{
    char time[32] = "";
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (localtime_r(&now, &local))
        std::strftime(time, sizeof time, "%h %e %T ", &local);
    char line[2400];
    const int begin = std::snprintf(line, sizeof line, "<%d>%s", LOG_USER | LOG_ERR, time);
    const bool ends = std::string_view(text).ends_with('\n');
    const int size =
        begin + std::snprintf(line + begin, sizeof line - static_cast<std::size_t>(begin),
                              "VA: %s%s", text, ends ? "" : "\n");
    const auto printed = static_cast<std::size_t>(size - begin);
    write_output(STDERR_FILENO, line + begin, printed);
    if (!system_log().take(line, static_cast<std::size_t>(size) - (ends ? 0 : 1)) &&
        access(_PATH_LOG, F_OK) != 0)
        print_on_console(line + begin, printed);
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

int log_error(const char *format, ...)
{
    const int error = errno;
    char text[2304]; // as long as the longest, of a bad run directory
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    log_line(text);
    errno = error;
    return -1;
}

} // namespace va
