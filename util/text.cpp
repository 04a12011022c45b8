#include "util/text.h"

#include <cstdio>
#include <system_error>

namespace va
{

std::string formatted_list(const char *format, std::va_list arguments)
{
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

std::string formatted(const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::string text = formatted_list(format, arguments);
    va_end(arguments);
    return text;
}

std::string error_text(int error)
{
    return std::generic_category().message(error);
}

} // namespace va
