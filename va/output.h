#pragma once

#include <cstddef>
#include <cstdint>

// Standard output and standard error, of which nobody may be reading.

// Main thread, before anything is printed. From then on lines go out one by one, and neither
// printing nor a log line waits for a reader: what a full pipe or socket does not take is lost.
// Files and terminals are written as ever.
void keep_output_from_blocking();

// Writes to standard output or standard error, without waiting, what it takes; the rest is lost.
// Any thread and signal handlers.
void write_output(int fd, const char *text, std::size_t size);

// Lines of standard output that nobody took; any thread.
std::uint32_t lost_output_lines();
