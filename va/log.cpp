#include "va/log.h"

#include <cerrno>
#include <cstdarg>

#include <syslog.h>

int log_error(const char *format, ...)
{
    const int error = errno;
    va_list arguments;
    va_start(arguments, format);
    vsyslog(LOG_ERR, format, arguments);
    va_end(arguments);
    errno = error;
    return -1;
}
