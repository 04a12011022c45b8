#pragma once

// The operations of the daemon.
#include "va/context.h"
#include "va/options.h"
#include "va/pid_file.h"
#include "va/signals.h"
#include "va/va_dis.h"
#include "va/va_fd.h"
#include "va/va_od.h"
#include "va/va_proc.h"
#include "va/va_ta.h"
#include "va/vana.h"

// The beginning and the end of the analytics back end.

// Main thread, once: makes the run directory, looks the sensor up, boots the co-processor (one
// retry after a full teardown), opens the library, reads the settings of the modules selected by
// va_parse_arg(), and creates their result servers and the control-message server, which the event
// loop serves from then on. Returns 0, or -1 after a message; nothing is released then.
int va_init(VaContext *context);

// Main thread, after the event loop: ends the pending reads, waiting for the processing thread, and
// tears the modules, the library and the co-processor down. Returns 0. The servers end with the
// process.
int va_stop(VaContext *context);
