#pragma once

#include "ipc/network/sck_svr.h"
#include "va/context.h"
#include "va/report.h"

#include <cstddef>
#include <cstdint>

// What the drivers of the analytics modules have in common. Processing thread, but for va_cancel().
namespace va
{

// Reads a record again and takes it over if any byte differs from the live copy. Returns whether it
// did; an unchanged record is left untouched.
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

// What one read of a module, or one pass over several, has brought; the greater prevails.
enum class Outcome { Nothing, Result, End };

// Ends the event loop's wait: what was relayed goes out now.
void wake_loop(const VaContext *context);

// Logs and reports a failed read, unless it was cancelled; the library's code is in errno.
void note_failed_read(const VaContext *context, VaModule module, const char *name);

// Reads a module's next result, if there is one, into a record kept for that, and relays it. `name`
// is that of `get_data`, for the log. A read that fails or is cancelled is the thread's end.
template <class Result, int (*get_data)(int, Result *), int (*relay)(VaContext *, const Result *)>
Outcome read_and_relay(VaContext *context, VaModule module, const char *name)
{
    constexpr int read_prm = 1; // the library's; always 1
    static Result result;
    switch (get_data(read_prm, &result)) {
    case 0:
        report(context->report, &VaHealth::has_result, module);
        relay(context, &result);
        wake_loop(context);
        return Outcome::Result;
    case -1:
        note_failed_read(context, module, name);
        return Outcome::End;
    default:
        return Outcome::Nothing;
    }
}

} // namespace va

// Main thread, at shutdown: calls `cancel_data` every 100 ms until it returns 0 or the processing
// thread has ended; at least once. Returns 0.
int va_cancel(const VaContext *context, int (*cancel_data)());
