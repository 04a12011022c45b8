#include "va/log.h"

#include "ipc/network/unix_address.h"
#include "util/fd.h"
#include "util/guarded.h"
#include "va/output.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string_view>

#include <fcntl.h>
#include <paths.h>
#include <sys/socket.h>
#include <sys/syslog.h>
#include <unistd.h>

namespace
{

constexpr char identity[] = "VA";

// Keeps the connection to the system log's socket; never waits for it.
class SystemLog
{
public:
    // False when it was not taken: there is no log, or nobody reads it.
    bool take(const char *line, std::size_t size)
    {
        const va::ScopedLock guard(lock_);
        return send_it(line, size) || (connect_anew() && send_it(line, size));
    }

private:
    bool send_it(const char *line, std::size_t size) VA_REQUIRES(lock_)
    {
        return socket_ && send(socket_.get(), line, size, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
    }

    // The log may have been started again.
    bool connect_anew() VA_REQUIRES(lock_)
    {
        const auto address = va::unix_address(_PATH_LOG);
        socket_.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        return socket_ && connect(socket_.get(), reinterpret_cast<const sockaddr *>(&*address),
                                  sizeof *address) == 0;
    }

    std::mutex lock_;
    Fd socket_ VA_GUARDED_BY(lock_);
};

// Not ended at exit: the processing thread may still be on its last lines then.
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

// As syslog() does with LOG_CONS and LOG_PERROR, but for waiting.
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
                              "%s: %s%s", identity, text, ends ? "" : "\n");
    const auto printed = static_cast<std::size_t>(size - begin);
    write_output(STDERR_FILENO, line + begin, printed);
    if (!system_log().take(line, static_cast<std::size_t>(size) - (ends ? 0 : 1)) &&
        access(_PATH_LOG, F_OK) != 0)
        print_on_console(line + begin, printed);
}

} // namespace

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
