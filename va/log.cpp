#include "va/log.h"

#include "ipc/network/unix_address.h"
#include "util/fd.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <paths.h>
#include <poll.h>
#include <sys/socket.h>
#include <syslog.h>

namespace
{

// Whether syslog() will not wait: the log's socket has room for a line, or there is none.
bool log_takes_a_line()
{
    const auto address = va::unix_address(_PATH_LOG);
    const Fd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket ||
        connect(socket.get(), reinterpret_cast<const sockaddr *>(&*address), sizeof *address) != 0)
        return true;
    pollfd writable{socket.get(), POLLOUT, 0};
    return poll(&writable, 1, 0) != 0;
}

// What syslog() writes there besides, with LOG_PERROR.
[[gnu::format(printf, 1, 0)]] void print_line(const char *format, va_list arguments)
{
    char line[1024];
    std::vsnprintf(line, sizeof line, format, arguments);
    const std::size_t length = std::strlen(line);
    const bool ends = length > 0 && line[length - 1] == '\n';
    std::fprintf(stderr, "VA: %s%s", line, ends ? "" : "\n");
}

} // namespace

int log_error(const char *format, ...)
{
    const int error = errno;
    const bool takes = log_takes_a_line();
    errno = error; // which "%m" would print
    va_list arguments;
    va_start(arguments, format);
    if (takes)
        vsyslog(LOG_ERR, format, arguments);
    else
        print_line(format, arguments);
    va_end(arguments);
    errno = error;
    return -1;
}
