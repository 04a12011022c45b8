#pragma once

#include <cerrno>

#include <syslog.h>

// Logs a library failure; `format` takes the library's code, errno, as "%X". Returns -1.
inline int log_failure(const char *format)
{
    syslog(LOG_ERR, format, static_cast<unsigned>(errno));
    return -1;
}
