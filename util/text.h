#pragma once

#include <cstdarg>
#include <string>

// Text by printf. Private to this tree, like util/fd.h. Any thread.
namespace va
{

// As printf(), of any length; the text is cut where `format` and its arguments do not fit together.
// Throws std::bad_alloc.
[[gnu::format(printf, 1, 2)]] std::string formatted(const char *format, ...);
[[gnu::format(printf, 1, 0)]] std::string formatted_list(const char *format,
                                                         std::va_list arguments);

// The system's words for an error number. Throws std::bad_alloc.
std::string error_text(int error);

} // namespace va
