#pragma once

#include "conf/parts.h"
#include "conf/store.h"

#include <cstdint>
#include <initializer_list>

// Windows and sizes as the store holds them. Private to conf/.

// The largest coordinate of a window or a line.
inline constexpr std::int32_t max_coordinate = 9999;

// Why edges are left out.
inline constexpr const char *no_window = "no window: four places of 0 to 9999 that enclose an area";

struct EdgeKeys {
    Key left;
    Key right;
    Key top;
    Key bottom;
};

struct Edges {
    std::int32_t left;
    std::int32_t right;
    std::int32_t top;
    std::int32_t bottom;
};

// A missing edge is -1.
Edges read_edges(RecordReader &store, const EdgeKeys &keys, int index);

bool all_in_range(std::initializer_list<std::int32_t> values, std::int32_t min, std::int32_t max);

// Whether the edges lie in 0..max and enclose an area, in whichever order they stand.
bool is_window(const Edges &edges, std::int32_t max);

// The same window with left <= right and top <= bottom.
Edges ordered(const Edges &edges);

// Stores the corners of a window and returns their number; 0 when the edges are no window, `points`
// is then left alone.
std::int32_t store_corners(const Edges &edges, std::int32_t max,
                           ConfPoint (&points)[CONF_POLYGON_POINTS]);

// Two numbers joined by "x", else `fallback`.
ConfSize read_size(RecordReader &store, const char *default_text, Key key, int index,
                   ConfSize fallback);

// Fills `x`, `y`, `width` and `height` of a record. The extent of unchecked edges may wrap.
template <class Record>
void store_rectangle(const Edges &edges, Record &record)
{
    const auto distance = [](std::int32_t from, std::int32_t to) {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(to) -
                                         static_cast<std::uint32_t>(from));
    };
    const Edges window = ordered(edges);
    record.x = window.left;
    record.y = window.top;
    record.width = distance(window.left, window.right);
    record.height = distance(window.top, window.bottom);
}
