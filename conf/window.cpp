#include "conf/window.h"

#include <algorithm>
#include <iterator>

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
