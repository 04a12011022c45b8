#include "va/driver.h"

#include "event/soft_queue.h"
#include "platform/ne3_val.h"
#include "util/guarded.h"
#include "va/log.h"

#include <algorithm>
#include <cerrno>
#include <limits>

#include <unistd.h>

namespace va
{

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

void wake_loop(const VaContext *context)
{
    if (context->wake)
        soft_queue_add(context->wake, 0);
}

void note_failed_read(const VaContext *context, VaModule module, const char *name)
{
    const int code = errno;
    if (code == NE3_VAL_ERR_CANCEL)
        return;
    report(context->report, &VaHealth::fails, module, name, code);
    log_error("%s failed.\n", name);
}

} // namespace va

int va_cancel(const VaContext *context, int (*cancel_data)())
{
    constexpr useconds_t retry_us = 100'000;
    while (cancel_data() != 0 && va::load_shared(context->threadEnded) != 1)
        usleep(retry_us);
    return 0;
}
