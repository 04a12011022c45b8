#pragma once

#include "event/loop.h"

// What signals ask of the daemon, and how its threads learn of it.

// Both are used by va::shared() (util/guarded.h): handlers write them, both threads look.

// 1 once SIGINT or SIGTERM has arrived.
extern int terminate;

// Set by SIGHUP, cleared by the processing thread: the settings are to be read again.
extern int hangup;

// Handler of SIGINT and SIGTERM: async-signal-safe, sets `terminate`, ends the event loop, and says
// so on standard output.
void sig1_handler(int signal);

// Handler of SIGHUP: async-signal-safe, sets `hangup`.
void sighup_handler(int signal);

// Blocks SIGHUP for the calling thread and those that it makes, or lets it through. A read of the
// chip's library is not to be interrupted by it, so the main thread alone takes it.
void block_sighup(bool block);

// Callback of what only ends the loop's wait, such as the periodic timer; does nothing.
std::int32_t null_timer(event_info *info, void *arg);

// Callback for the loop's first cycle: a stop request that came before the loop ran would be lost.
std::int32_t stop_if_requested(event_info *info, void *arg);
