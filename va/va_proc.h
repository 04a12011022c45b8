#pragma once

#include "event/soft_queue.h"
#include "va/context.h"

// The processing thread: opens and starts the enabled modules, then polls them, relays their
// results and applies changed settings, until it is told to stop, a read is cancelled or fails, or
// a module cannot be started.

// Main thread, before the thread is created, for VaContext::wake: a queue of one slot on the event
// loop. The thread adds to it after each result that it relayed; an add that is refused means that
// a wake is under way. Null when memory or descriptors are short. Not to be freed: the thread may
// outlive the loop.
soft_queue *va_new_wake();

// Thread entry; `argument` is the VaContext, which must outlive the thread. Prints its end on
// standard output, sets threadEnded and returns null.
void *va_proc(void *argument);

// Control-message callback, main thread: requests a reconfiguration from the VaContext in
// `argument`.
int va_msg_reconfig(void *argument, const char *line, int length);
