#pragma once

#include "conf/conf.h"
#include "conf/findings.h"
#include "platform/nvram.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>

// What the readers share: typed access to the store, and windows. Private to conf/.

// The decimal number at the start of `text`, or 0; see conf.h.
std::int32_t parse_number(const char *text);

// Up to two decimal numbers joined by "x"; returns how many were found. Only those are stored.
int parse_pair(const char *text, std::int32_t &first, std::int32_t &second);

// A key of the store: a format that holds one "%d" at most. Another does not compile.
class Key
{
public:
    consteval Key(const char *text) : text_(text)
    {
        int conversions = 0;
        for (; *text; ++text) {
            if (*text == '%' && (*++text != 'd' || ++conversions > 1))
                throw "not a key";
        }
    }
    const char *text() const { return text_; }

private:
    const char *text_;
};

// For the findings: what was read, and of a number whether it is one; and that it does not count,
// neither under this key nor under any that differs from it behind the last dot alone.
void note(Key key, int index, const char *value, const char *default_text);
void note_number(Key key, int index, const char *value, const char *default_text);
void leave_out_with(Key key, int index, const char *why);

// The line or area that the key is of became a filter.
void note_filter(int number, Key key, int index, std::int32_t event, int bit);

// Whether the findings are told what is read.
enum class Tells { No, Yes };

// Reads keys one after another into one buffer. `index` fills the "%d" of a key that has one.
template <std::size_t Size, Tells tells>
class StoreReader
{
public:
    const char *text(const char *default_text, Key key, int index = 0)
    {
        read(default_text, key, index);
        if (tells == Tells::Yes)
            note(key, index, buffer_, default_text);
        return buffer_;
    }

    std::int32_t number(const char *default_text, Key key, int index = 0)
    {
        read(default_text, key, index);
        if (tells == Tells::Yes)
            note_number(key, index, buffer_, default_text);
        return parse_number(buffer_);
    }

    std::int32_t flag(const char *default_text, Key key, int index = 0)
    {
        return isEnabled(text(default_text, key, index));
    }

private:
    void read(const char *default_text, Key key, int index)
    {
        buffer_[0] = '\0';
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        nvram_get_with_buffer(buffer_, Size, default_text, key.text(), index);
#pragma GCC diagnostic pop
    }

    char buffer_[Size];
};

using RecordReader = StoreReader<1024, Tells::Yes>;
using KeyReader = StoreReader<128, Tells::No>;

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
