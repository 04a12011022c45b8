#pragma once

#include "platform/ne3_val.h"
#include "records/records.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <utility>
#include <vector>

// What is in the picture, before any setting acts on it, and where the stand-in gets that from.

namespace va::sim
{

struct Size {
    std::int32_t width; // pixels
    std::int32_t height;
};

inline bool is_wide(Size frame)
{
    return ne3_val_is_wide(frame.width, frame.height);
}

using Point = ne3_val_od_point;

using Moment = std::chrono::steady_clock::time_point;

inline constexpr Moment never = Moment::max();

struct SeenObjects {
    std::vector<SimObjectEntry> objects; // of result 0
    bool jump; // the numbers may belong to other objects than in the observation before
};

using AlarmWords = std::array<std::uint32_t, 4>;

// When the next observation of each kind that would make a result is due: in the past when there is
// one, `never` when none is known of. Reads of other modules give way to it.
struct DueTimes {
    Moment objects = never;
    Moment faces = never;
    Moment alarm = never;
};

template <class Item>
std::optional<Item> take_first(std::deque<Item> &items)
{
    if (items.empty())
        return {};
    std::optional<Item> first(std::move(items.front()));
    items.pop_front();
    return first;
}

// A source that sees nothing. Called with the chip locked, one call at a time.
class Source
{
public:
    Source() = default;
    virtual ~Source() = default;
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;

    // While the library is open; the others are called in between.
    virtual void start() {}
    virtual void stop() {}

    // The next observation of each kind, once each; nothing when none is due.
    virtual std::optional<SeenObjects> take_objects() { return {}; }
    virtual std::optional<std::vector<SimFaceEntry>> take_faces() { return {}; }
    virtual std::optional<AlarmWords> take_alarm() { return {}; }

    virtual DueTimes due() const { return {}; }
};

} // namespace va::sim
