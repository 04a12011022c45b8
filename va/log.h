#pragma once

// A line of the system log, and of standard error; of standard error alone while nobody reads the
// system log, for which it does not wait. `format` is printf's. Keeps errno. Returns -1. Any
// thread.
[[gnu::format(printf, 1, 2)]] int log_error(const char *format, ...);
