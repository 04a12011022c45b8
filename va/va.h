#pragma once

#include "event/soft_queue.h"
#include "va/context.h"

// The daemon's operations: start, processing thread, control messages, end.

// Main thread, once: makes the run directory, looks the sensor up, boots the co-processor (one
// retry after a full teardown), opens the library, reads the settings of the modules selected by
// va_parse_arg(), and creates their result servers and the control-message server, which the event
// loop serves from then on. Returns 0, or -1 after a message; nothing is released then.
int va_init(VaContext *context);

// Main thread, before the processing thread is created, for VaContext::wake: a queue of one slot on
// the event loop. The thread adds to it after each result that it relayed; an add that is refused
// means that a wake is under way. Null when memory or descriptors are short. Not to be freed: the
// thread may outlive the loop.
soft_queue *va_new_wake();

// Entry of the processing thread; `argument` is the VaContext, which must outlive the thread. Opens
// and starts the enabled modules, then polls them, relays their results and applies changed
// settings, until it is told to stop, a read is cancelled or fails, or a module cannot be started.
// Prints its end on standard output, sets threadEnded and returns null.
void *va_proc(void *argument);

// Control-message callbacks, main thread, for the VaContext in `argument`.

// Requests that the processing thread read the settings again.
int va_msg_reconfig(void *argument, const char *line, int length);

// Replaces the file RUN_DIR/status, the daemon's state as text (docs/client.md has its lines); some
// 250 ms after the one before at the earliest, for all who have asked meanwhile. When it cannot,
// logs why, once until it can again. Never waits for the processing thread.
int va_msg_status(void *argument, const char *line, int length);

// Main thread, at start and at the end: a status that an earlier daemon, or this one, has left is
// out of date.
void va_remove_status();

// Main thread, after the event loop: ends the pending reads, waiting for the processing thread, and
// tears the modules, the library and the co-processor down. Returns 0. The servers end with the
// process.
int va_stop(VaContext *context);
