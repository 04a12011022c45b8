#include "platform/sim/scene.h"

#include "platform/sim/text.h"

#include <algorithm>
#include <fstream>
#include <istream>
#include <utility>

namespace va::sim
{
namespace
{

void add_alarm(Scene &scene, const Values &values, std::int64_t every)
{
    scene.alarms.push_back(
        {values[0], every, {values.bits(1), values.bits(2), values.bits(3), values.bits(4)}});
}

template <SimObjectKind kind>
void add_object(Scene &scene, const Values &values)
{
    scene.objects.push_back({{values.bits(0), kind, 0, 0, values[1], values[2], 0, 0, 0, 0},
                             {values[3], values[4]},
                             {values[5], values[6]},
                             {values[7], values[8]}});
}

constexpr Statement<Scene> settings[] = {
    {"", [](Scene &, const Values &) {}},
    {"frame S S",
     [](Scene &scene, const Values &v) {
         scene.frame = {v[0], v[1]};
     }},
    {"period D", [](Scene &scene, const Values &v) { scene.period = v[0]; }},
    {"begin T", [](Scene &scene, const Values &v) { scene.begin = v[0]; }},
    {"od_interval D", [](Scene &scene, const Values &v) { scene.od_interval = v[0]; }},
    {"feed N", [](Scene &scene, const Values &v) { scene.feed = v.word; }},
    {"fail F D W",
     [](Scene &scene, const Values &v) {
         scene.calls.push_back({v.word, v[0], v[1]});
     }},
    {"hang F D D",
     [](Scene &scene, const Values &v) {
         scene.calls.push_back({v.word, v[0], 0, std::chrono::milliseconds(v[1])});
     }},
};

constexpr Statement<Scene> observations[] = {
    {"every D ta W W W W", [](Scene &scene, const Values &v) { add_alarm(scene, v, v[0]); }},
    {"at T ta W W W W", [](Scene &scene, const Values &v) { add_alarm(scene, v, 0); }},
    {"object W dynamic SxS from P,P to P,P between T U", add_object<SimObjectKind::Moving>},
    {"object W static SxS from P,P to P,P between T U", add_object<SimObjectKind::Stationary>},
    {"face W at P,P size SxS between T U",
     [](Scene &scene, const Values &v) {
         scene.faces.push_back({{v.bits(0), v[1], v[2], v[3], v[4], 100, 0}, {v[5], v[6]}});
     }},
};

void read_lines(std::istream &file, const std::string &path, Scene &scene)
{
    std::vector<std::pair<int, std::string>> observed; // lines and their numbers
    const auto report = [&](int number, const char *what, const std::string &line) {
        say("%s:%d: %s: %s", path.c_str(), number, what, line.c_str());
        scene.clean = false;
    };
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        if (apply_line(line, settings, scene))
            continue;
        if (apply_line(line, observations, scene))
            observed.emplace_back(number, line);
        else
            report(number, "not understood", line);
    }
    if (!scene.feed.empty()) {
        for (const auto &[number, text] : observed)
            report(number, "ignored: the scene has a feed", text);
    }
}

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

class Playback : public Source
{
public:
    explicit Playback(Scene scene) : scene_(std::move(scene)) {}

    void start() override
    {
        const Moment now = std::chrono::steady_clock::now();
        start_ = now - std::chrono::milliseconds(scene_.begin);
        alarms_due_.clear();
        for (const ScriptedAlarm &alarm : scene_.alarms) {
            const Moment first = start_ + std::chrono::milliseconds(alarm.first);
            const Moment before = now - Moment::duration(1); // what is due just now still counts
            alarms_due_.push_back(first < now ? due_after(before, alarm, first) : first);
        }
        objects_ = cursor_at_begin(scene_.od_interval);
        faces_ = cursor_at_begin(faces_interval_ms);
    }

    std::optional<SeenObjects> take_objects() override
    {
        const auto tick = take_tick(objects_);
        if (!tick)
            return {};
        return SeenObjects{entries_at(scene_.objects, tick->time), tick->new_round};
    }

    std::optional<std::vector<SimFaceEntry>> take_faces() override
    {
        const auto tick = take_tick(faces_);
        if (!tick)
            return {};
        return entries_at(scene_.faces, tick->time);
    }

    std::optional<AlarmWords> take_alarm() override
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

    DueTimes due() const override
    {
        return {next_shown(objects_, scene_.objects), next_shown(faces_, scene_.faces),
                alarms_due_.empty() ? never : *std::ranges::min_element(alarms_due_)};
    }

private:
    // How far a kind of observations has got.
    struct Cursor {
        std::int64_t interval = 1;
        std::int64_t next = 0;
        std::int64_t round = -1;
    };

    struct Tick {
        std::int64_t time; // within the period
        bool new_round;    // the first one taken since the scene began or repeated
    };

    template <class Script>
    Moment next_shown(const Cursor &cursor, const std::vector<Script> &scripts) const
    {
        const std::int64_t time = cursor.next * cursor.interval;
        const std::int64_t of_period = scene_.period ? time % scene_.period : time;
        const bool shown = std::ranges::any_of(
            scripts, [=](const Script &script) { return script.shown.holds(of_period); });
        return shown ? start_ + std::chrono::milliseconds(time) : never;
    }

    // When an alarm that falls due at `due`, not after `now`, does so again.
    Moment due_after(Moment now, const ScriptedAlarm &alarm, Moment due) const
    {
        const std::chrono::milliseconds step(alarm.every ? alarm.every : scene_.period);
        return step.count() ? due + ((now - due) / step + 1) * step : never;
    }

    Cursor cursor_at_begin(std::int64_t interval) const
    {
        return {interval, (scene_.begin + interval - 1) / interval};
    }

    std::optional<Tick> take_tick(Cursor &cursor) const
    {
        const std::int64_t newest = (std::chrono::steady_clock::now() - start_) /
                                    std::chrono::milliseconds(cursor.interval);
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

    Scene scene_;
    Moment start_;
    std::vector<Moment> alarms_due_; // of each alarm of the scene
    Cursor objects_;
    Cursor faces_;
};

} // namespace

std::optional<Scene> read_scene(const std::string &path)
{
    std::ifstream file(path);
    Scene scene;
    read_lines(file, path, scene);
    if (file.eof())
        return scene;
    say("%s: cannot be read", path.c_str());
    return {};
}

std::unique_ptr<Source> make_playback(Scene scene)
{
    return std::make_unique<Playback>(std::move(scene));
}

} // namespace va::sim
