#pragma once

#include "records/records.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

// Where observations come from: what is in the picture, before any setting acts on it.

using Moment = std::chrono::steady_clock::time_point;

inline constexpr Moment never = Moment::max();

struct SeenObjects {
    std::vector<SimObjectEntry> objects; // of result 0
    bool anew; // the numbers may be other objects' than in the observation before
};

using AlarmWords = std::array<std::uint32_t, 4>;

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

    // The next observation of each kind, once each; nothing when none has fallen due.
    virtual std::optional<SeenObjects> take_objects() { return {}; }
    virtual std::optional<std::vector<SimFaceEntry>> take_faces() { return {}; }
    virtual std::optional<AlarmWords> take_alarm() { return {}; }

    // When the next of each kind falls due that would make a result; in the past when there is one,
    // `never` when none is known of: reads of other modules give way to it.
    virtual Moment objects_due() const { return never; }
    virtual Moment faces_due() const { return never; }
    virtual Moment alarm_due() const { return never; }
};
