#pragma once

#include "event/event.h"

#include <atomic>

// The daemon as a process that a signal stops. Each descriptor that the daemon opens, in whichever
// room, is close-on-exec, but for the standard ones.

// 1 once SIGINT or SIGTERM has arrived.
extern std::atomic<int> terminate;

// Handler of SIGINT and SIGTERM: async-signal-safe, says so on standard output, sets `terminate`
// and ends the event loop.
void sig1_handler(int signal);

// Raises the soft limit of descriptors as far as the hard limit lets, until those that no client
// can have (a descriptor of 1024 or more is refused) suffice for store, loader and log. A log line
// tells when they do not.
void raise_descriptor_limit();

// Callback of what only ends the loop's wait, such as the periodic timer; does nothing.
std::int32_t null_timer(event_info *info, void *arg);

// Callback for the loop's first cycle: a stop request that came before the loop ran would be lost.
std::int32_t stop_if_requested(event_info *info, void *arg);
