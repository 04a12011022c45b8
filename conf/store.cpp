#include "conf/store.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace
{

// The number at the start of `text` and where it ends (`text` itself when there is none).
std::int32_t parse_number(const char *text, const char **end)
{
    char *stop = nullptr;
    const long value = std::strtol(text, &stop, 10);
    *end = stop;
    return static_cast<std::int32_t>(std::clamp<long>(
        value, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

// A key with its number.
struct FullKey {
    FullKey(Key key, int index)
    {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        std::snprintf(text, sizeof text, key.text(), index);
#pragma GCC diagnostic pop
    }

    char text[128];
};

} // namespace

std::int32_t parse_number(const char *text)
{
    const char *end = nullptr;
    return parse_number(text, &end);
}

int parse_pair(const char *text, std::int32_t &first, std::int32_t &second)
{
    const char *end = nullptr;
    std::int32_t value = parse_number(text, &end);
    if (end == text)
        return 0;
    first = value;
    if (*end != 'x')
        return 1;
    const char *rest = end + 1;
    value = parse_number(rest, &end);
    if (end == rest)
        return 1;
    second = value;
    return 2;
}

void note(Key key, int index, const char *value, const char *default_text)
{
    conf_note(FullKey(key, index).text, value, default_text);
}

void note_number(Key key, int index, const char *value, const char *default_text)
{
    const char *end = nullptr;
    parse_number(value, &end);
    char doubtful[128];
    std::snprintf(doubtful, sizeof doubtful, "%.90s (no number: counts as 0)", value);
    note(key, index, end != value ? value : doubtful, default_text);
}

void leave_out_with(Key key, int index, const char *why)
{
    FullKey full(key, index);
    if (char *const dot = std::strrchr(full.text, '.'))
        dot[1] = '\0';
    conf_leaveOutGroup(full.text, why);
}

void note_filter(int number, Key key, int index, std::int32_t event, int bit)
{
    FullKey full(key, index);
    if (char *const dot = std::strrchr(full.text, '.'))
        *dot = '\0';
    conf_noteFilter(number, full.text, event, bit);
}
