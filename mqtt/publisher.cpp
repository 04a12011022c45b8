#include "mqtt/publisher.h"

#include "conf/conf_sensor.h"
#include "conf/conf_vmf.h"
#include "mqtt/discovery.h"
#include "tools/common/standard_output.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace
{

using namespace std::chrono_literals;
using std::chrono::seconds;

constexpr seconds scene_pause{2};
constexpr seconds losses_pause{10};
constexpr seconds good_bye{2};
constexpr char online[] = "online";
constexpr char offline[] = "offline";

ConfSize frame_size()
{
    SensorConfig sensor;
    if (conf_getSensorConfig(&sensor) == 0)
        return {sensor.width, sensor.height};
    return {1920, 1080}; // as if it were the usual one; the reader has said that there is none
}

std::vector<AlarmRule> rules_in(std::span<const Shape> shapes)
{
    std::vector<AlarmRule> rules;
    for (const Shape &shape : shapes) {
        if (shape.used && (shape.kind == Shape::Kind::Line || shape.kind == Shape::Kind::Area))
            rules.push_back(rule_of(shape));
    }
    return rules;
}

bool has_stream(const Source &source, const char *name)
{
    return std::ranges::count(source.streams, find_stream(name)) > 0;
}

} // namespace

Publisher::Publisher(const Settings &settings, const Source &source)
    : settings_(settings),
      topics_(settings),
      tells_tamper_(TAMPER_RECORDS_ARE_ALARMS && has_stream(source, "ta")),
      notifier_([](const char *text) { say(text); }),
      broker_(Broker::open(settings, {topics_.available(), offline, true})),
      maker_([this](const Event &event) { take_event(event); }),
      now_{std::chrono::system_clock::now(), {}},
      alive_due_(notifier_.interval() > 0us ? Elapsed() : Elapsed::max())
{
    for (const char *name : {"od", "fd"}) {
        if (settings.rate > 0 && has_stream(source, name))
            frames_.emplace(find_stream(name), settings.rate);
    }
    broker_->set_state(topics_.available(), offline);
    frame_ = frame_size();
    if (tells_tamper_)
        broker_->set_state(topics_.tamper(), tamper_payload(false, now_.time, settings_));
    read_scene();
}

void Publisher::print(const Record &record)
{
    now_ = {record.time, record.at};
    maker_.take(record);
    take_frame(record);
    send_frames();
}

void Publisher::connection(const Connection &connection)
{
    now_ = connection.moment;
    maker_.set_connected(connection.kind, connection.connected, now_.at);
}

void Publisher::verdict(const Moment &now, const Verdict &verdict)
{
    now_ = now;
    if (verdict.status == NO_STATUS) // of which a subscriber need not know
        set_daemon("the daemon is here, but cannot write its status", true);
    else
        maker_.set_verdict(verdict, now_.at);
}

void Publisher::tick(const Moment &now)
{
    now_ = now;
    maker_.pass(now.at);
    send_frames();
    if (now.at - scene_read_ >= scene_pause)
        read_scene();
    tell_losses();
    if (const auto failure = broker_->failure())
        throw std::runtime_error(*failure);
    tell_supervisor();
}

void Publisher::report(const Moment &)
{
    const Broker::Counts counts = broker_->counts();
    say("broker: " + broker_->status() + "; frames sent " + std::to_string(counts.frames_sent) +
        ", dropped " + std::to_string(counts.frames_dropped) + "; events sent " +
        std::to_string(counts.events_sent) + ", dropped " + std::to_string(counts.events_dropped) +
        ", waiting " + std::to_string(counts.waiting));
}

void Publisher::finish(const Moment &)
{
    notifier_.send("STOPPING=1\nSTATUS=sends what waits");
    broker_->set_state(topics_.available(), offline);
    broker_->finish(good_bye);
}

void Publisher::set_daemon(const char *text, bool is_available)
{
    daemon_ = text;
    broker_->set_state(topics_.available(), is_available ? online : offline);
}

void Publisher::take_event(const Event &event)
{
    using enum Event::Kind;
    const SystemTime time = time_of(event.at);
    switch (event.kind) {
    case DaemonHere:
        frame_ = frame_size();
        read_scene();
        set_daemon("the daemon is here", true);
        break;
    case DaemonGone:
        set_daemon(waiting, false);
        break;
    case DaemonUnwell:
        set_daemon("the daemon is not well", false);
        break;
    case DaemonWell:
        set_daemon("the daemon is here", true);
        break;
    case ObjectAppeared:
    case ObjectLeft:
        broker_->send_event({topics_.track(event.from.number),
                             track_payload(event, time_of(event.first), time_of(event.last))});
        break;
    case LineCrossed:
        broker_->send_event({topics_.line(event.rule), line_payload(event.rule, time, settings_)});
        break;
    case AreaEntered:
    case AreaLeft:
        send_area(event.rule, event.kind == AreaEntered, time);
        break;
    case TamperBegan:
    case TamperEnded:
        broker_->send_event(
            {topics_.tamper(), tamper_payload(event.kind == TamperBegan, time, settings_), true});
        break;
    case RecordsMissed:
        results_missed_ += event.missed;
        break;
    }
}

// Retained only while the settings have the area: who would take it away otherwise?
void Publisher::send_area(const AlarmRule &rule, bool inside, SystemTime time)
{
    const std::string topic = topics_.area(rule);
    broker_->send_event(
        {topic, area_payload(rule, inside, time, settings_), areas_.contains(topic)});
}

void Publisher::take_frame(const Record &record)
{
    const auto frames = frames_.find(&record.kind);
    if (frames == frames_.end())
        return;
    std::vector<Sighting> sightings =
        record.kind.name == "od" ? objects_in(record.payload) : faces_in(record.payload);
    if (!sightings.empty()) // else their layout is not known
        frames->second.take(std::move(sightings), record.time);
}

void Publisher::send_frames()
{
    for (auto &entry : frames_) {
        const std::string topic = topics_.frames(*entry.first);
        entry.second.pass(now_.at, [&](std::span<const Sighting> sightings, SystemTime time) {
            broker_->send_frame(topic, frame_payload(sightings, time, frame_, settings_));
        });
    }
}

void Publisher::read_scene()
{
    scene_read_ = now_.at;
    const std::vector<Shape> shapes = read_overlay();
    if (std::string scene = scene_payload(frame_, shapes); std::exchange(scene_, scene) == scene)
        return;
    const std::vector<AlarmRule> rules = rules_in(shapes);
    broker_->set_state(topics_.scene(), scene_);
    maker_.set_rules(rules);
    set_areas(rules);
    if (settings_.discovery.empty())
        return;
    for (const auto &[topic, payload] : discovery_states(rules, settings_, topics_))
        broker_->set_state(topic, payload);
}

// Of a new area it is told that nothing is inside; of one that is not there, nothing, also when it
// went while nobody was here to tell.
void Publisher::set_areas(std::span<const AlarmRule> rules)
{
    const std::set<std::string> before = std::exchange(areas_, {});
    for (const AlarmRule &rule : rules) {
        if (rule.source != AlarmRule::Source::Area)
            continue;
        const std::string topic = topics_.area(rule);
        areas_.insert(topic);
        if (!before.contains(topic))
            broker_->set_state(topic, area_payload(rule, false, now_.time, settings_));
    }
    for (int number = 0; number < CONF_OD_AREAS; ++number) {
        const std::string topic = topics_.area({AlarmRule::Source::Area, 0, 0, number});
        if (!areas_.contains(topic))
            broker_->set_state(topic, "");
    }
}

void Publisher::tell_losses()
{
    const Broker::Counts counts = broker_->counts();
    const Losses losses{counts.frames_dropped, counts.events_dropped, results_missed_};
    if (losses == told_ || !broker_->is_connected() ||
        (losses_told_ && now_.at - *losses_told_ < losses_pause))
        return;
    told_ = losses;
    losses_told_ = now_.at;
    broker_->send_event({topics_.lost(), losses_payload(losses, now_.time)});
    say("lost so far: " + std::to_string(losses.frames) + " frames, " +
        std::to_string(losses.events) + " events, " + std::to_string(losses.results) +
        " results of the daemon");
}

void Publisher::tell_supervisor()
{
    const bool alive = now_.at >= alive_due_;
    if (alive)
        alive_due_ = now_.at + notifier_.interval() / 2;
    notifier_.tell("broker: " + broker_->status() + "; " + daemon_, alive);
}
