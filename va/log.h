#pragma once

// A line of the system log; `format` is printf's. Keeps errno. Returns -1. Any thread.
[[gnu::format(printf, 1, 2)]] int log_error(const char *format, ...);
