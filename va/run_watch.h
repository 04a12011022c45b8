#pragma once

struct VaContext;

// Notices when the run directory is emptied or replaced under the running daemon: its clients then
// do not find it, and a second daemon does not see it. Main thread.

// Remembers the directory and what the daemon has made in it, and looks once a second, on the event
// loop, whether they still stand there; what has gone is told in one log line. False when memory is
// short.
bool watch_run_dir(const VaContext &context);

// What is wrong with it, for people; empty when nothing is.
const char *run_dir_fault();
