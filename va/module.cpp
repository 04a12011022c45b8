#include "va/module.h"

#include <algorithm>
#include <cerrno>
#include <limits>

#include <syslog.h>
#include <unistd.h>

int log_failure(const char *what, const char *end)
{
    syslog(LOG_ERR, "%s%X%s", what, static_cast<unsigned>(errno), end);
    return -1;
}

void relay_entries(sck_svr_t *server, const void *entries, std::int32_t count,
                   std::size_t entry_size)
{
    if (!entries || count < 0)
        return;
    // A length that does not fit the frame header stays too long for every client.
    constexpr std::uint64_t longest = std::numeric_limits<std::uint32_t>::max();
    const std::uint64_t length = std::uint64_t{entry_size} * static_cast<std::uint32_t>(count);
    sck_svr_write(server, entries, static_cast<std::uint32_t>(std::min(length, longest)));
}

int va_cancel(const VaContext *context, int (*cancel_data)())
{
    constexpr useconds_t retry_us = 100'000;
    while (cancel_data() != 0 && context->threadEnded != 1)
        usleep(retry_us);
    return 0;
}
