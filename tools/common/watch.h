#pragma once

#include "tools/common/output.h"
#include "tools/common/source.h"

// From now on SIGUSR1 does not end the process but asks for a report, of which watch() tells the
// printers; early, since whoever asks may see the program before it watches.
void prepare_report();

// Hands on what the daemon sends, until the count is reached, the time is up, nobody reads standard
// output any more, or SIGINT or SIGTERM comes. Says on standard error what becomes of the
// connections and, when nothing comes for a few seconds, whether that is because the daemon is not
// well, for which it is asked. Returns the end.
Moment watch(const Source &source, Output &output);
