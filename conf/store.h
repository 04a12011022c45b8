#pragma once

#include "conf/conf.h"
#include "conf/findings.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>

// What the readers share: typed access to the store, and windows. Private to conf/.

namespace va
{

// The decimal number at the start of `text`, or 0; see conf.h. `end`, unless it is null, becomes
// the end of the number, or `text` when there is none.
std::int32_t parse_number(const char *text, const char **end = nullptr);

// Up to two decimal numbers joined by "x"; returns how many were found. Only those are stored.
int parse_pair(const char *text, std::int32_t &first, std::int32_t &second);

// Reads the settings of a record one after another into one buffer, and reports them. The key of
// each is the prefix followed by a name.
class RecordReader
{
public:
    explicit RecordReader(const char *prefix = "");
    RecordReader(const char *item, int n); // the prefix is `item`, n and a dot

    const char *text(const char *default_text, const char *name); // until the next is read
    std::int32_t flag(const char *default_text, const char *name);
    std::int32_t number(const char *default_text, const char *name);

    // Two numbers joined by "x", else `fallback`.
    void size(const char *default_text, const char *name, ConfSize fallback, std::int32_t &width,
              std::int32_t &height);

    // What was read with the prefix does not take effect, for this reason.
    void reject(const char *why);
    // It became filter `number`.
    void became_filter(int number, std::int32_t event, int bit);

protected:
    void read_keys_alone(); // makes it a KeyReader

private:
    void read(const char *default_text, const char *name);

    char key_[128];
    std::size_t prefix_length_;
    char buffer_[1024];
    std::size_t size_ = sizeof buffer_;
    ConfReport report_;
};

// Values of 127 characters at the most, which are not reported.
class KeyReader : public RecordReader
{
public:
    KeyReader() { read_keys_alone(); }
    KeyReader(const char *item, int n) : RecordReader(item, n) { read_keys_alone(); }
};

// The largest coordinate of a window or a line.
inline constexpr std::int32_t max_coordinate = 9999;

struct Edges {
    std::int32_t left;
    std::int32_t right;
    std::int32_t top;
    std::int32_t bottom;
};

// A missing edge is -1.
Edges read_edges(RecordReader &store);

bool all_in_range(std::initializer_list<std::int32_t> values, std::int32_t min, std::int32_t max);

// Whether the edges lie in 0..max and enclose an area, in whichever order they stand. If not, what
// was read is rejected.
bool check_window(RecordReader &store, const Edges &edges, std::int32_t max);

// Checks a window and, if it is one, stores its corners. Returns how many were stored: 4 or 0.
std::int32_t store_corners(RecordReader &store, const Edges &edges, std::int32_t max,
                           ConfPoint (&points)[CONF_POLYGON_POINTS]);

// The same window with left <= right and top <= bottom.
Edges ordered(const Edges &edges);

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

} // namespace va
