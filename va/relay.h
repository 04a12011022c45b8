#pragma once

#include "ipc/network/sck_svr.h"

#include <cstddef>
#include <cstdint>

// Hands an array of `count` entries of the library to a server as one record. A null array, a
// negative count or none sends nothing; more than a client could ever hold is refused by the
// server, which does not touch the array then.
void relay_entries(sck_svr_t *server, const void *entries, std::int32_t count,
                   std::size_t entry_size);
