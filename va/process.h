#pragma once

#include "event/loop.h"

#include <cstdint>

#include <sys/stat.h>

// The daemon as a process: its signals, its descriptors, and whose files it trusts.

// 1 once SIGINT or SIGTERM has arrived. Handlers write it and `hangup`, both threads read them: by
// va::shared() (util/guarded.h) alone.
extern int terminate;

// Handler of SIGINT and SIGTERM: async-signal-safe, sets `terminate`, ends the event loop, and
// prints a line on standard output.
void sig1_handler(int signal);

// Callback of what only ends the loop's wait, such as the periodic timer; does nothing.
std::int32_t null_timer(event_info *info, void *arg);

namespace va
{

// Set by SIGHUP, cleared by the processing thread: the settings are to be read again.
extern int hangup;

// Handler of SIGHUP: async-signal-safe, sets `hangup`.
void sighup_handler(int signal);

// Blocks SIGHUP for the calling thread and those that it makes, or unblocks it. It is not to
// interrupt a read of the chip's library, so the main thread alone takes it.
void block_sighup(bool block);

// Callback for the loop's first cycle: a stop request that came before the loop ran would be lost.
std::int32_t stop_if_requested(event_info *info, void *arg);

// Raises the soft limit of descriptors, as far as the hard limit allows, until store, loader and
// log are left enough that no client can take (a descriptor of 1024 or more is refused). Logs a
// line when they are not. Each descriptor that the daemon opens, in whichever folder, is
// close-on-exec, but for the standard ones.
void raise_descriptor_limit();

// Whether the file belongs to this user or to root.
bool is_trusted(const struct stat &status);

} // namespace va
