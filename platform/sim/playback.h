#pragma once

#include "platform/sim/scene.h"
#include "platform/sim/source.h"

#include <algorithm>

// A scene being played, from where it begins whenever it is started. Of the objects and of the
// faces that fell due while nobody asked, the newest is kept, and with it those of the 100 ms
// before; an alarm that fell due again is one alarm.
class Playback : public Source
{
public:
    explicit Playback(Scene scene);

    void start() override;

    std::optional<SeenObjects> take_objects() override;
    std::optional<std::vector<SimFaceEntry>> take_faces() override;
    std::optional<AlarmWords> take_alarm() override;

    // `never` while the scene shows nothing at the next time.
    Moment objects_due() const override { return due(objects_, scene_.objects); }
    Moment faces_due() const override { return due(faces_, scene_.faces); }
    Moment alarm_due() const override;

private:
    // Where a kind of observations has got to.
    struct Cursor {
        std::int64_t interval = 1;
        std::int64_t next = 0;
        std::int64_t round = -1;
    };

    struct Tick {
        std::int64_t time; // within the period
        bool new_round;    // the first one taken since the scene began or repeated
    };

    // When an alarm that falls due at `due`, not after `now`, does so again.
    Moment due_after(Moment now, const ScriptedAlarm &alarm, Moment due) const;

    Cursor cursor_at_begin(std::int64_t interval) const;
    std::optional<Tick> take_tick(Cursor &cursor) const;

    template <class Script>
    Moment due(const Cursor &cursor, const std::vector<Script> &scripts) const
    {
        const std::int64_t time = cursor.next * cursor.interval;
        const std::int64_t of_period = scene_.period ? time % scene_.period : time;
        const bool shown = std::ranges::any_of(
            scripts, [=](const Script &script) { return script.shown.holds(of_period); });
        return shown ? start_ + std::chrono::milliseconds(time) : never;
    }

    Scene scene_;
    Moment start_;
    std::vector<Moment> alarms_due_; // of each alarm of the scene
    Cursor objects_;
    Cursor faces_;
};
