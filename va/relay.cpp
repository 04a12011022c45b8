#include "va/relay.h"

#include <algorithm>
#include <limits>

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
