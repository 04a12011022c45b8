#pragma once

#include "event/event.h"

#include <atomic>

// The daemon as a process that a signal stops. Each descriptor that the daemon opens, in whichever
// room, is close-on-exec, but for the standard ones.

// 1 once SIGINT or SIGTERM has arrived.
extern std::atomic<int> terminate;

// Set by SIGHUP, cleared by the processing thread: the settings are to be read again.
extern std::atomic<int> hangup;

// Handler of SIGINT and SIGTERM: async-signal-safe, says so on standard output, sets `terminate`
// and ends the event loop.
void sig1_handler(int signal);

// Handler of SIGHUP: async-signal-safe, sets `hangup`.
void sighup_handler(int signal);

// Blocks SIGHUP for the calling thread and those that it makes, or lets it through. A read of the
// chip's library is not to be interrupted by it, so the main thread alone takes it.
void block_sighup(bool block);

// Raises the soft limit of descriptors as far as the hard limit lets, until those that no client
// can have (a descriptor of 1024 or more is refused) suffice for store, loader and log. A log line
// tells when they do not.
void raise_descriptor_limit();

// Callback of what only ends the loop's wait, such as the periodic timer; does nothing.
std::int32_t null_timer(event_info *info, void *arg);

// Callback for the loop's first cycle: a stop request that came before the loop ran would be lost.
std::int32_t stop_if_requested(event_info *info, void *arg);
