#include "platform/sim/text.h"

#include "util/file.h"

#include <array>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <unistd.h>

namespace va::sim
{
namespace
{

// What a capital letter stands for.
struct NumberKind {
    char letter;
    int base; // 0: decimal or, after 0x, hexadecimal
    std::int64_t min;
    std::int64_t max;
};

constexpr std::int64_t largest_coordinate = 65535; // pixels
constexpr std::int64_t longest_time = std::numeric_limits<std::int32_t>::max();

constexpr NumberKind number_kinds[] = {
    {'T', 10, 0, longest_time}, // milliseconds
    {'U', 10, 1, longest_time},
    {'D', 10, 1, longest_time},
    {'P', 10, -largest_coordinate, largest_coordinate},
    {'S', 10, 1, largest_coordinate},
    {'W', 0, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::uint32_t>::max()},
};

bool is_blank(char letter)
{
    return std::isspace(static_cast<unsigned char>(letter)) != 0;
}

void skip_blanks(const char *&text)
{
    while (is_blank(*text))
        ++text;
}

bool read_number(const char *&text, const NumberKind &kind, Values &values)
{
    char *end = nullptr;
    const long long number = std::strtoll(text, &end, kind.base);
    if (end == text || number < kind.min || number > kind.max)
        return false;
    if (kind.letter == 'U' && number <= values.numbers.back())
        return false;
    values.numbers.push_back(static_cast<std::int32_t>(number));
    text = end;
    return true;
}

bool read_function(const char *&text, Values &values)
{
    while (std::isalnum(static_cast<unsigned char>(*text)) || *text == '_')
        values.word += *text++;
    return values.word.starts_with("ne3_");
}

bool read_word(const char *&text, Values &values)
{
    while (*text && !is_blank(*text))
        values.word += *text++;
    return !values.word.empty();
}

bool read_item(const char *&text, char item, Values &values)
{
    if (item == ' ') {
        const char *const start = text;
        skip_blanks(text);
        return text != start;
    }
    if (item == 'F')
        return read_function(text, values);
    if (item == 'N')
        return read_word(text, values);
    for (const NumberKind &kind : number_kinds) {
        if (kind.letter == item)
            return read_number(text, kind, values);
    }
    return *text++ == item;
}

} // namespace

void say(const char *format, ...)
{
    constexpr std::string_view prefix = "sim: ";
    std::array<char, 4096> line; // not on the heap: lack of memory is reported too
    prefix.copy(line.data(), prefix.size());
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line.data() + prefix.size(), line.size() - prefix.size(), format, arguments);
    va_end(arguments);
    const std::size_t length = std::strlen(line.data());
    line[length] = '\n'; // in the place of the terminating zero
    write_whole(STDERR_FILENO, {line.data(), length + 1});
}

bool matches(const std::string &line, std::string_view pattern, Values &values)
{
    const std::string statement = line.substr(0, line.find('#'));
    const char *text = statement.c_str();
    skip_blanks(text);
    for (const char item : pattern) {
        if (!read_item(text, item, values))
            return false;
    }
    skip_blanks(text);
    return text == statement.data() + statement.size();
}

} // namespace va::sim
