#pragma once

#include "platform/sim/entries.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// A scene file as read, and its playing. Times are milliseconds from the scene's start.

struct Interval {
    std::int64_t begin;
    std::int64_t end; // the first moment after it

    bool holds(std::int64_t time) const { return begin <= time && time < end; }
};

struct Size {
    std::int32_t width; // pixels
    std::int32_t height;
};

inline bool is_wide(Size frame)
{
    return 100 * frame.width / frame.height == 177; // 16:9, in hundredths
}

struct Point {
    std::int32_t x; // pixels
    std::int32_t y;
};

struct ScriptedAlarm {
    std::int64_t first;
    std::int64_t every; // 0: once a period
    std::array<std::uint32_t, 4> words;
};

struct ScriptedObject {
    SimObjectEntry entry; // but for its place
    Point from;           // its centre
    Point to;
    Interval shown;
};

struct ScriptedFace {
    SimFaceEntry entry;
    Interval shown;
};

struct PlannedFailure {
    std::string function;
    int nth;
    int error;
};

struct Scene {
    Size frame{1920, 1080};
    std::int64_t period = 0; // 0: the scene does not repeat
    std::int64_t od_interval = 200;
    std::vector<ScriptedAlarm> alarms;
    std::vector<ScriptedObject> objects;
    std::vector<ScriptedFace> faces;
    std::vector<PlannedFailure> failures;
};

// Reads a scene file; nothing when it cannot be read. `clean` tells whether every line was
// understood; the others are reported on standard error and left out.
std::optional<Scene> read_scene(const std::string &path, bool &clean);

// The moment a result of a module falls due.
struct Tick {
    std::int64_t time; // within the period
    bool new_round;    // the first one taken since the scene began or repeated
};

using Moment = std::chrono::steady_clock::time_point;

// A scene being played. Everything is handed out once. Of the objects and of the faces that fell
// due while nobody asked, the newest is kept, and with it those of the 100 ms before; an alarm that
// fell due again is one alarm.
class Playback
{
public:
    explicit Playback(Scene scene = {});

    const Scene &scene() const { return scene_; }
    void restart();

    std::optional<std::array<std::uint32_t, 4>> take_alarm();
    std::optional<Tick> take_od_tick() { return take_tick(od_, scene_.od_interval); }
    std::optional<Tick> take_fd_tick() { return take_tick(fd_, fd_interval); }

    // When the next result of each kind falls due; Moment::max() while the scene shows nothing
    // then.
    Moment alarm_due() const;
    Moment od_due() const { return tick_due(od_, scene_.od_interval, scene_.objects); }
    Moment fd_due() const { return tick_due(fd_, fd_interval, scene_.faces); }

    std::vector<SimObjectEntry> objects_at(std::int64_t time) const; // of result 0
    std::vector<SimFaceEntry> faces_at(std::int64_t time) const;

private:
    static constexpr std::int64_t fd_interval = 200;

    struct Cursor {
        std::int64_t next = 0;
        std::int64_t round = -1;
    };

    std::optional<Tick> take_tick(Cursor &cursor, std::int64_t interval) const;

    template <class Script>
    Moment tick_due(const Cursor &cursor, std::int64_t interval,
                    const std::vector<Script> &scripts) const
    {
        const std::int64_t time = cursor.next * interval;
        const std::int64_t of_period = scene_.period ? time % scene_.period : time;
        const bool shown = std::ranges::any_of(
            scripts, [=](const Script &script) { return script.shown.holds(of_period); });
        return shown ? start_ + std::chrono::milliseconds(time) : Moment::max();
    }

    Scene scene_;
    Moment start_;
    std::vector<Moment> alarms_due_; // of each alarm of the scene
    Cursor od_;
    Cursor fd_;
};
