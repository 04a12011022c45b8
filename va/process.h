#pragma once

#include "event/event.h"

#include <atomic>

// The daemon as a process: one instance at a time, stopped by a signal.

// 1 once SIGINT or SIGTERM has arrived.
extern std::atomic<int> terminate;

// Handler of SIGINT and SIGTERM: async-signal-safe, says so on standard output, sets `terminate`
// and ends the event loop.
void sig1_handler(int signal);

// Opens /dev/null for each of standard input, output and error that is closed, so that no socket
// takes its number and receives what is printed. Before anything else is opened.
void open_standard_descriptors();

// Waits, signalling it every second, until the instance that the PID file names is gone, then
// writes this process's own. A file whose process does not exist any more, or that names none, is
// removed, or written over where that fails. Returns file_printf()'s result: without the run
// directory there is no PID file. Exits with status 0 when `terminate` is set meanwhile.
int create_pid_file();

// Removes the PID file if create_pid_file() wrote it.
void remove_own_pid_file();

// Callback of the periodic timer that bounds the loop's wait; does nothing.
std::int32_t null_timer(event_info *info, void *arg);

// Callback for the loop's first cycle: a stop request that came before the loop ran would be lost.
std::int32_t stop_if_requested(event_info *info, void *arg);
