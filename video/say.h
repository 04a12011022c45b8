#pragma once

// A line on standard error, "va_video: " before it. Line ends within it become blanks.
// Any thread.
[[gnu::format(printf, 1, 2)]] void say(const char *format, ...);
