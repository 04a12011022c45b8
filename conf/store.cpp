#include "conf/store.h"

#include "platform/nvram.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <limits>

#include <strings.h>

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

namespace va
{

std::int32_t parse_number(const char *text, const char **end)
{
    char *stop = nullptr;
    const long value = std::strtol(text, &stop, 10);
    if (end)
        *end = stop;
    return static_cast<std::int32_t>(std::clamp<long>(
        value, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
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
    const char *after = end + 1;
    value = parse_number(after, &end);
    if (end == after)
        return 1;
    second = value;
    return 2;
}

RecordReader::RecordReader(const char *prefix)
    : prefix_length_(static_cast<std::size_t>(std::snprintf(key_, sizeof key_, "%s", prefix)))
{
}

RecordReader::RecordReader(const char *item, int n)
    : prefix_length_(static_cast<std::size_t>(std::snprintf(key_, sizeof key_, "%s%d.", item, n)))
{
}

void RecordReader::read_keys_alone()
{
    size_ = 128;
    report_ = ConfReport::to_nobody();
}

void RecordReader::read(const char *default_text, const char *name)
{
    std::snprintf(key_ + prefix_length_, sizeof key_ - prefix_length_, "%s", name);
    buffer_[0] = '\0';
    nvram_get_with_buffer(buffer_, size_, default_text, "%s", key_);
}

const char *RecordReader::text(const char *default_text, const char *name)
{
    read(default_text, name);
    report_.read(key_, buffer_, default_text, "");
    return buffer_;
}

std::int32_t RecordReader::flag(const char *default_text, const char *name)
{
    return isEnabled(text(default_text, name));
}

std::int32_t RecordReader::number(const char *default_text, const char *name)
{
    read(default_text, name);
    const char *end = nullptr;
    const std::int32_t value = parse_number(buffer_, &end);
    report_.read(key_, buffer_, default_text, end == buffer_ ? " (no number: counts as 0)" : "");
    return value;
}

void RecordReader::size(const char *default_text, const char *name, ConfSize fallback,
                        std::int32_t &width, std::int32_t &height)
{
    ConfSize size;
    if (parse_pair(text(default_text, name), size.width, size.height) < 2)
        size = fallback;
    width = size.width;
    height = size.height;
}

void RecordReader::reject(const char *why)
{
    key_[prefix_length_] = '\0';
    report_.reject(key_, why);
}

void RecordReader::became_filter(int number, std::int32_t event, int bit)
{
    key_[prefix_length_ - 1] = '\0'; // the dot
    report_.filter(number, key_, event, bit);
    key_[prefix_length_ - 1] = '.';
}

Edges read_edges(RecordReader &store)
{
    Edges edges;
    edges.left = store.number("-1", "Left");
    edges.right = store.number("-1", "Right");
    edges.top = store.number("-1", "Top");
    edges.bottom = store.number("-1", "Bottom");
    return edges;
}

bool all_in_range(std::initializer_list<std::int32_t> values, std::int32_t min, std::int32_t max)
{
    return std::ranges::all_of(
        values, [=](std::int32_t value) { return int_chk_range(value, min, max) != 0; });
}

bool check_window(RecordReader &store, const Edges &edges, std::int32_t max)
{
    const auto &[left, right, top, bottom] = edges;
    if (all_in_range({left, right, top, bottom}, 0, max) && left != right && top != bottom)
        return true;
    char why[80];
    std::snprintf(why, sizeof why, "no window: four places of 0 to %d that enclose an area", max);
    store.reject(why);
    return false;
}

std::int32_t store_corners(RecordReader &store, const Edges &edges, std::int32_t max,
                           ConfPoint (&points)[CONF_POLYGON_POINTS])
{
    if (!check_window(store, edges, max))
        return 0;
    const auto [left, right, top, bottom] = ordered(edges);
    const ConfPoint corners[] = {{left, top}, {left, bottom}, {right, bottom}, {right, top}};
    std::ranges::copy(corners, points);
    return std::size(corners);
}

Edges ordered(const Edges &edges)
{
    const auto [left, right] = std::minmax({edges.left, edges.right});
    const auto [top, bottom] = std::minmax({edges.top, edges.bottom});
    return {left, right, top, bottom};
}

} // namespace va
