#pragma once

#include "ipc/network/sck_svr.h"
#include "va/va.h"

#include <cstddef>
#include <cstdint>

// What the drivers of the analytics modules have in common.

// Logs what failed, the library's code in errno behind it as hexadecimal digits, then `end`.
// Returns -1.
int log_failure(const char *what, const char *end = "");

// Reads a record afresh and takes it over if any byte differs from the live copy. Returns whether
// it did; an unchanged record is left untouched.
template <class Record, class Get>
bool refresh(Record &live, Get get, int (*compare)(const Record *, const Record *))
{
    Record fresh;
    get(&fresh);
    if (compare(&fresh, &live) == 0)
        return false;
    live = fresh;
    return true;
}

// Hands an array of `count` entries of the library to a server as one record. A null array, a
// negative count or none sends nothing; more than a client could ever hold is refused by the
// server, which does not touch the array then.
void relay_entries(sck_svr_t *server, const void *entries, std::int32_t count,
                   std::size_t entry_size);

// Main thread, at shutdown: calls `cancel_data` every 100 ms until it returns 0 or the processing
// thread has ended; at least once. Returns 0.
int va_cancel(const VaContext *context, int (*cancel_data)());
