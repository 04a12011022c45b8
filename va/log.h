#pragma once

#include <cstddef>
#include <cstdint>

// What the daemon writes for people: its log, standard output and standard error. It never waits
// for whoever reads them.
namespace va
{

// Writes a line to the system log, as "VA", LOG_USER and LOG_ERR, and to standard error; where
// there is no system log, to the console. While nobody reads the log, the line is on standard error
// alone. `format` is printf's. Keeps errno. Returns -1. Any thread.
[[gnu::format(printf, 1, 2)]] int log_error(const char *format, ...);

// Main thread, before anything is printed. From then on lines go out one by one, and neither
// printing nor a log line waits for a reader: what a full pipe or socket does not take is lost.
// Files and terminals are written as usual.
void keep_output_from_blocking();

// Writes as much to standard output or standard error as it takes without waiting; the remainder is
// lost. Any thread and signal handlers.
void write_output(int fd, const char *text, std::size_t size);

// Lines of standard output that were lost. Any thread.
std::uint32_t lost_output_lines();

} // namespace va
