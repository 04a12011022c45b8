#include "platform/sim/scene.h"

#include <algorithm>
#include <utility>

namespace
{

std::int32_t between(std::int32_t from, std::int32_t to, std::int64_t part, std::int64_t whole)
{
    return static_cast<std::int32_t>(from + (std::int64_t{to} - from) * part / whole);
}

SimObjectEntry entry_of(const ScriptedObject &script, std::int64_t time)
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

} // namespace

Playback::Playback(Scene scene) : scene_(std::move(scene))
{
    restart();
}

void Playback::restart()
{
    start_ = std::chrono::steady_clock::now();
    alarms_taken_.assign(scene_.alarms.size(), 0);
    od_ = {};
    fd_ = {};
}

std::int64_t Playback::elapsed() const
{
    const auto passed = std::chrono::steady_clock::now() - start_;
    return std::chrono::duration_cast<std::chrono::milliseconds>(passed).count();
}

// 0: the alarm comes once.
std::int64_t Playback::step_of(const ScriptedAlarm &alarm) const
{
    return alarm.every ? alarm.every : scene_.period;
}

std::int64_t Playback::count_due(const ScriptedAlarm &alarm, std::int64_t now) const
{
    if (now < alarm.first)
        return 0;
    const std::int64_t step = step_of(alarm);
    return step ? (now - alarm.first) / step + 1 : 1;
}

std::optional<std::array<std::uint32_t, 4>> Playback::take_alarm()
{
    const std::int64_t now = elapsed();
    for (std::size_t i = 0; i < alarms_taken_.size(); ++i) {
        const std::int64_t due = count_due(scene_.alarms[i], now);
        if (due > alarms_taken_[i]) {
            alarms_taken_[i] = due;
            return scene_.alarms[i].words;
        }
    }
    return {};
}

Moment Playback::alarm_due() const
{
    Moment due = Moment::max();
    for (std::size_t i = 0; i < alarms_taken_.size(); ++i) {
        const ScriptedAlarm &alarm = scene_.alarms[i];
        const std::int64_t step = step_of(alarm);
        const std::chrono::milliseconds time(alarm.first + alarms_taken_[i] * step);
        if (step || alarms_taken_[i] == 0)
            due = std::min(due, start_ + time);
    }
    return due;
}

std::optional<Tick> Playback::take_tick(Cursor &cursor, std::int64_t interval) const
{
    const std::int64_t number = elapsed() / interval;
    if (number < cursor.next)
        return {};
    cursor.next = number + 1;
    const std::int64_t time = number * interval;
    const std::int64_t round = scene_.period ? time / scene_.period : 0;
    const bool new_round = round != cursor.round;
    cursor.round = round;
    return Tick{time - round * scene_.period, new_round};
}

std::vector<SimObjectEntry> Playback::objects_at(std::int64_t time) const
{
    std::vector<SimObjectEntry> entries;
    for (const ScriptedObject &script : scene_.objects) {
        if (script.shown.holds(time))
            entries.push_back(entry_of(script, time));
    }
    return entries;
}

std::vector<SimFaceEntry> Playback::faces_at(std::int64_t time) const
{
    std::vector<SimFaceEntry> entries;
    for (const ScriptedFace &script : scene_.faces) {
        if (script.shown.holds(time))
            entries.push_back(script.entry);
    }
    return entries;
}
