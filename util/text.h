#pragma once

#include <charconv>
#include <cstdarg>
#include <optional>
#include <string>
#include <string_view>

// Text by printf, and numbers in text. Private to this tree, like util/fd.h. Any thread.
namespace va
{

// As printf(), of any length; the text is cut where `format` and its arguments do not fit together.
// Throws std::bad_alloc.
[[gnu::format(printf, 1, 2)]] std::string formatted(const char *format, ...);
[[gnu::format(printf, 1, 0)]] std::string formatted_list(const char *format,
                                                         std::va_list arguments);

// The system's words for an error number. Throws std::bad_alloc.
std::string error_text(int error);

// The number that the whole text is, as std::from_chars() reads it; nothing when it is none.
template <class Number>
std::optional<Number> number_in(std::string_view text)
{
    Number number{};
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

} // namespace va
