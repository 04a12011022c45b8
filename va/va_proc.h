#pragma once

#include "va/va.h"

// The processing thread: opens and starts the enabled modules, then polls them, relays their
// results and applies changed settings, until it is told to stop, a read is cancelled or fails, or
// a module cannot be started.

// Thread entry; `argument` is the VaContext, which must outlive the thread. Prints its end on
// standard output, sets threadEnded and returns null.
void *va_proc(void *argument);

// Control-message callback, main thread: requests a reconfiguration from the VaContext in
// `argument`.
int va_msg_reconfig(void *argument, const char *line, int length);
