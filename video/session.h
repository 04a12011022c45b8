#pragma once

#include "video/options.h"

// Looks at the source until it ends or a stop is requested, and tells the feed. Returns the status
// that the program ends with. Once in a process.
int run_session(const Options &options);

// Asks it to end; for a signal handler.
void request_stop();
