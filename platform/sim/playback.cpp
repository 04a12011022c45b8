#include "platform/sim/playback.h"

#include <utility>

namespace
{

constexpr std::int64_t kept_ms = 100;
constexpr std::int64_t faces_interval_ms = 200;

std::int32_t between(std::int32_t from, std::int32_t to, std::int64_t part, std::int64_t whole)
{
    return static_cast<std::int32_t>(from + (std::int64_t{to} - from) * part / whole);
}

SimObjectEntry entry_at(const ScriptedObject &script, std::int64_t time)
{
    const std::int64_t passed = time - script.shown.begin;
    const std::int64_t length = script.shown.end - script.shown.begin;
    SimObjectEntry entry = script.entry;
    entry.centre_x = between(script.from.x, script.to.x, passed, length);
    entry.centre_y = between(script.from.y, script.to.y, passed, length);
    entry.x = entry.centre_x - entry.width / 2;
    entry.y = entry.centre_y - entry.height / 2;
    return entry;
}

SimFaceEntry entry_at(const ScriptedFace &script, std::int64_t)
{
    return script.entry;
}

template <class Script>
auto entries_at(const std::vector<Script> &scripts, std::int64_t time)
{
    std::vector<decltype(Script::entry)> entries;
    for (const Script &script : scripts) {
        if (script.shown.holds(time))
            entries.push_back(entry_at(script, time));
    }
    return entries;
}

} // namespace

Playback::Playback(Scene scene) : scene_(std::move(scene)) {}

void Playback::start()
{
    const Moment now = std::chrono::steady_clock::now();
    start_ = now - std::chrono::milliseconds(scene_.begin);
    alarms_due_.clear();
    for (const ScriptedAlarm &alarm : scene_.alarms) {
        const Moment first = start_ + std::chrono::milliseconds(alarm.first);
        alarms_due_.push_back(first < now ? due_after(now, alarm, first) : first);
    }
    objects_ = cursor_at_begin(scene_.od_interval);
    faces_ = cursor_at_begin(faces_interval_ms);
}

std::optional<SeenObjects> Playback::take_objects()
{
    const auto tick = take_tick(objects_);
    if (!tick)
        return {};
    return SeenObjects{entries_at(scene_.objects, tick->time), tick->new_round};
}

std::optional<std::vector<SimFaceEntry>> Playback::take_faces()
{
    const auto tick = take_tick(faces_);
    if (!tick)
        return {};
    return entries_at(scene_.faces, tick->time);
}

std::optional<AlarmWords> Playback::take_alarm()
{
    const Moment now = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < alarms_due_.size(); ++i) {
        Moment &due = alarms_due_[i];
        if (now < due)
            continue;
        due = due_after(now, scene_.alarms[i], due);
        return scene_.alarms[i].words;
    }
    return {};
}

Moment Playback::alarm_due() const
{
    return alarms_due_.empty() ? never : *std::ranges::min_element(alarms_due_);
}

Moment Playback::due_after(Moment now, const ScriptedAlarm &alarm, Moment due) const
{
    const std::chrono::milliseconds step(alarm.every ? alarm.every : scene_.period);
    return step.count() ? due + ((now - due) / step + 1) * step : never;
}

Playback::Cursor Playback::cursor_at_begin(std::int64_t interval) const
{
    return {interval, (scene_.begin + interval - 1) / interval};
}

std::optional<Playback::Tick> Playback::take_tick(Cursor &cursor) const
{
    const std::int64_t newest =
        (std::chrono::steady_clock::now() - start_) / std::chrono::milliseconds(cursor.interval);
    if (newest < cursor.next)
        return {};
    const std::int64_t number = std::max(cursor.next, newest - kept_ms / cursor.interval);
    cursor.next = number + 1;
    const std::int64_t time = number * cursor.interval;
    const std::int64_t round = scene_.period ? time / scene_.period : 0;
    const bool new_round = round != cursor.round;
    cursor.round = round;
    return Tick{time - round * scene_.period, new_round};
}
