#include "conf/store.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>

#include <strings.h>

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

int isEnabled(const char *text)
{
    static constexpr const char *words[] = {"Enabled", "Enable", "yes", "on", "1"};
    return std::ranges::any_of(words,
                               [=](const char *word) { return strcasecmp(text, word) == 0; });
}

int int_chk_range(std::int32_t value, std::int32_t min, std::int32_t max)
{
    return min <= value && value <= max;
}

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

Edges read_edges(RecordReader &store, const EdgeKeys &keys, int index)
{
    constexpr const char *missing = "-1";
    Edges edges;
    edges.left = store.number(missing, keys.left, index);
    edges.right = store.number(missing, keys.right, index);
    edges.top = store.number(missing, keys.top, index);
    edges.bottom = store.number(missing, keys.bottom, index);
    return edges;
}

bool all_in_range(std::initializer_list<std::int32_t> values, std::int32_t min, std::int32_t max)
{
    return std::ranges::all_of(
        values, [=](std::int32_t value) { return int_chk_range(value, min, max) != 0; });
}

bool is_window(const Edges &edges, std::int32_t max)
{
    return all_in_range({edges.left, edges.right, edges.top, edges.bottom}, 0, max) &&
           edges.left != edges.right && edges.top != edges.bottom;
}

Edges ordered(const Edges &edges)
{
    const auto [left, right] = std::minmax({edges.left, edges.right});
    const auto [top, bottom] = std::minmax({edges.top, edges.bottom});
    return {left, right, top, bottom};
}

std::int32_t store_corners(const Edges &edges, std::int32_t max,
                           ConfPoint (&points)[CONF_POLYGON_POINTS])
{
    if (!is_window(edges, max))
        return 0;
    const auto [left, right, top, bottom] = ordered(edges);
    const ConfPoint corners[] = {{left, top}, {left, bottom}, {right, bottom}, {right, top}};
    std::ranges::copy(corners, points);
    return std::size(corners);
}

ConfSize read_size(RecordReader &store, const char *default_text, Key key, int index,
                   ConfSize fallback)
{
    ConfSize size;
    const int found = parse_pair(store.text(default_text, key, index), size.width, size.height);
    return found == 2 ? size : fallback;
}
