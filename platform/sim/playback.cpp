#include "platform/sim/scene.h"

#include <algorithm>
#include <utility>

namespace
{

constexpr std::int64_t kept_ms = 100;

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
    alarms_due_.clear();
    for (const ScriptedAlarm &alarm : scene_.alarms)
        alarms_due_.push_back(start_ + std::chrono::milliseconds(alarm.first));
    od_ = {};
    fd_ = {};
}

std::optional<std::array<std::uint32_t, 4>> Playback::take_alarm()
{
    const Moment now = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < alarms_due_.size(); ++i) {
        Moment &due = alarms_due_[i];
        if (now < due)
            continue;
        const ScriptedAlarm &alarm = scene_.alarms[i];
        const std::chrono::milliseconds step(alarm.every ? alarm.every : scene_.period);
        due = step.count() ? due + ((now - due) / step + 1) * step : Moment::max();
        return alarm.words;
    }
    return {};
}

Moment Playback::alarm_due() const
{
    return alarms_due_.empty() ? Moment::max() : *std::ranges::min_element(alarms_due_);
}

std::optional<Tick> Playback::take_tick(Cursor &cursor, std::int64_t interval) const
{
    const std::int64_t newest =
        (std::chrono::steady_clock::now() - start_) / std::chrono::milliseconds(interval);
    if (newest < cursor.next)
        return {};
    const std::int64_t number = std::max(cursor.next, newest - kept_ms / interval);
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
