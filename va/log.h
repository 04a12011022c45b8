#pragma once

// A line of the system log, under the identity "VA" and as an error of a user's program, and of
// standard error; of the console, where there is no system log. Waits for nobody: while the log is
// not read, the line is on standard error alone. `format` is printf's. Keeps errno. Returns -1. Any
// thread.
[[gnu::format(printf, 1, 2)]] int log_error(const char *format, ...);
