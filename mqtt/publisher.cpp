#include "mqtt/publisher.h"

#include "mqtt/discovery.h"
#include "tools/common/printing.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace va::mqtt
{

namespace
{

using namespace std::chrono_literals;
using std::chrono::seconds;

constexpr seconds losses_pause{10};
constexpr seconds good_bye{2};
constexpr char online[] = "online";
constexpr char offline[] = "offline";

bool has_stream(const Source &source, Stream stream)
{
    return std::ranges::count(source.streams, stream) > 0;
}

} // namespace

Publisher::Publisher(const Settings &settings, const Source &source)
    : settings_(settings),
      topics_(settings.names),
      tells_tamper_(TAMPER_RECORDS_ARE_ALARMS && has_stream(source, Stream::Ta)),
      notifier_([](const char *text) { say(text); }),
      broker_(Broker::open(settings, {topics_.available(), offline, true})),
      maker_([this](const Event &event) { take_event(event); }),
      now_{std::chrono::system_clock::now(), {}},
      alive_due_(notifier_.interval() > 0us ? Elapsed() : Elapsed::max())
{
    for (const Stream stream : {Stream::Od, Stream::Fd}) {
        if (settings.rate > 0 && has_stream(source, stream))
            frames_.emplace(stream, settings.rate);
    }
    broker_->set_state(topics_.available(), offline);
    maker_.expect_scene();
    if (tells_tamper_)
        broker_->set_state(topics_.tamper(), tamper_message(false, now_.time, settings_.names));
}

void Publisher::record(const Record &record)
{
    now_ = {record.time, record.at};
    maker_.take(record);
    take_frame(record);
    send_frames();
}

void Publisher::connection(const Connection &connection)
{
    now_ = connection.moment;
    maker_.set_connected(connection.stream, connection.connected, now_.at);
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
    // An alarm is reported when its participants are known, which is a little later.
    const bool is_alarm = event.kind == LineCrossed || event.kind == AreaEntered;
    const SystemTime time = time_of(is_alarm ? event.first : event.at);
    switch (event.kind) {
    case DaemonHere:
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
                             track_message(event, time_of(event.first), time_of(event.last))});
        break;
    case LineCrossed:
        broker_->send_event({topics_.line(event.rule), line_message(event, time, settings_.names)});
        break;
    case AreaEntered:
    case AreaLeft:
        send_area(event, time);
        break;
    case TamperBegan:
    case TamperEnded:
        broker_->send_event({topics_.tamper(),
                             tamper_message(event.kind == TamperBegan, time, settings_.names),
                             true});
        break;
    case ResultsMissed:
        results_missed_ += event.missed;
        break;
    }
}

// Retained only while the area is in force: who would take it away otherwise?
void Publisher::send_area(const Event &event, SystemTime time)
{
    const std::string topic = topics_.area(event.rule);
    const bool inside = event.kind == Event::Kind::AreaEntered;
    const std::span<const Participant> participants(event.participants);
    broker_->send_event({topic,
                         area_message(event.rule, inside, time, settings_.names,
                                      inside ? participants : participants.first(0)),
                         areas_.contains(topic)});
}

void Publisher::take_frame(const Record &record)
{
    const auto frames = frames_.find(record.stream);
    if (frames == frames_.end())
        return;
    std::vector<Detection> detections = detections_in(record);
    if (!detections.empty()) // else their layout is not known
        frames->second.take(std::move(detections), record.time);
}

void Publisher::send_frames()
{
    if (!frame_)
        return;
    for (auto &entry : frames_) {
        const std::string topic = topics_.frames(entry.first);
        entry.second.pass(now_.at, [&](std::span<const Detection> detections, SystemTime time) {
            broker_->send_frame(topic, frame_message(detections, time, *frame_, settings_.names));
        });
    }
}

void Publisher::status(const Moment &now, const DaemonStatus &status)
{
    now_ = now;
    const auto scene = scene_of(status);
    if (!scene)
        return;
    maker_.set_scene(scene);
    frame_ = scene->frame;
    if (std::string message = scene_message(*scene); std::exchange(scene_, message) == message)
        return;
    broker_->set_state(topics_.scene(), scene_);
    set_areas(scene->rules);
    if (settings_.discovery.empty())
        return;
    for (const auto &[topic, payload] : discovery_states(scene->rules, settings_, topics_))
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
            broker_->set_state(topic, area_message(rule, false, now_.time, settings_.names));
    }
    for (int number = 0; number < MAX_AREAS; ++number) {
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
    broker_->send_event({topics_.lost(), losses_message(losses, now_.time)});
    say("lost so far: " + std::to_string(losses.frames) + " frames, " +
        std::to_string(losses.events) + " events, " + std::to_string(losses.results) +
        " results of the daemon");
}

void Publisher::tell_supervisor()
{
    const bool alive = now_.at >= alive_due_;
    if (alive)
        alive_due_ = now_.at + notifier_.interval() / 2;
    notifier_.notify("broker: " + broker_->status() + "; " + daemon_, alive);
}

} // namespace va::mqtt
