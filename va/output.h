#pragma once

#include <cstdint>

// Standard output and standard error, of which nobody may be reading.

// Main thread, before anything is printed. From then on lines go out one by one, and neither
// printing nor a log line on standard error waits for a reader: what a full pipe or socket does not
// take is lost. Files and terminals are written as ever.
void keep_output_from_blocking();

// Lines of standard output that nobody took; any thread.
std::uint32_t lost_output_lines();
