#include "mqtt/publisher.h"

#include "mqtt/discovery.h"
#include "tools/common/printing.h"
#include "util/text.h"

#include <cinttypes>
#include <stdexcept>

namespace va::mqtt
{

namespace
{

using namespace std::chrono_literals;

constexpr auto losses_interval = 10s;
constexpr auto finish_timeout = 2s;
constexpr char online[] = "online";
constexpr char offline[] = "offline";

} // namespace

Publisher::Publisher(const Settings &settings, const Source &source)
    : settings_(settings),
      topics_(settings.names),
      notifier_([](const char *text) { say(text); }),
      broker_(Broker::open(settings, {topics_.available(), offline, true})),
      maker_([this](const Event &event) { publish_event(event); }),
      now_{std::chrono::system_clock::now(), {}},
      alive_due_(notifier_.interval() > 0us ? Elapsed() : Elapsed::max())
{
    const auto is_read = [&](Stream stream) {
        return std::ranges::count(source.streams, stream) > 0;
    };
    for (const Stream stream : {Stream::Od, Stream::Fd}) {
        if (settings.rate > 0 && is_read(stream))
            frames_.emplace(stream, settings.rate);
    }
    maker_.expect_scene();
    broker_->set_state(topics_.available(), offline);
    if (TAMPER_RECORDS_ARE_ALARMS && is_read(Stream::Ta))
        broker_->set_state(topics_.tamper(), tamper_message(false, now_.time, settings_.names));
    // The states that an earlier run may have left at the broker.
    for (int number = 0; number < MAX_AREAS; ++number)
        areas_.insert(topics_.area({AlarmRule::Source::Area, 0, 0, number}));
    set_areas({});
}

void Publisher::record(const Record &record)
{
    now_ = {record.time, record.at};
    maker_.take(record);
    const auto limiter = frames_.find(record.stream);
    if (!frame_size_ || limiter == frames_.end())
        return;
    std::vector<Detection> detections = detections_in(record);
    if (!detections.empty()) // else their layout is not known
        limiter->second.add({std::move(detections), record.time, *frame_size_});
    publish_frames();
}

void Publisher::connection(const Connection &connection)
{
    now_ = connection.moment;
    maker_.set_connected(connection.stream, connection.connected, now_.at);
}

void Publisher::verdict(const Moment &now, const Verdict &verdict)
{
    now_ = now;
    if (verdict.status == NO_STATUS) // which a subscriber need not know
        set_daemon("the daemon is here, but cannot write its status", true);
    else
        maker_.set_verdict(verdict, now_.at);
}

void Publisher::tick(const Moment &now)
{
    now_ = now;
    maker_.pass(now.at);
    publish_frames();
    const Broker::Report broker = broker_->report();
    if (broker.failure)
        throw std::runtime_error(*broker.failure);
    report_losses(broker);
    const bool alive = now.at >= alive_due_;
    if (alive)
        alive_due_ = now.at + notifier_.interval() / 2;
    notifier_.notify("broker: " + broker.status + "; " + daemon_, alive);
}

void Publisher::report(const Moment &)
{
    const Broker::Report broker = broker_->report();
    say(formatted("broker: %s; frames sent %" PRIu64 ", dropped %" PRIu64 "; events sent %" PRIu64
                  ", dropped %" PRIu64 ", waiting %zu",
                  broker.status.c_str(), broker.frames_sent, broker.frames_dropped,
                  broker.events_sent, broker.events_dropped, broker.waiting));
}

void Publisher::finish(const Moment &now)
{
    now_ = now;
    notifier_.send("STOPPING=1\nSTATUS=sends what waits");
    maker_.finish(now.at);
    broker_->set_state(topics_.available(), offline);
    broker_->finish(finish_timeout);
}

void Publisher::set_daemon(const char *text, bool is_available)
{
    daemon_ = text;
    broker_->set_state(topics_.available(), is_available ? online : offline);
}

void Publisher::publish_event(const Event &event)
{
    using enum Event::Kind;
    // An alarm is reported when its participants are known, which is a little later.
    const bool is_alarm = event.kind == LineCrossed || event.kind == AreaEntered;
    const SystemTime time = time_of(is_alarm ? event.first : event.at);
    switch (event.kind) {
    case DaemonHere:
    case DaemonWell:
        set_daemon("the daemon is here", true);
        break;
    case DaemonGone:
        frame_size_.reset(); // the next one may have another
        set_daemon(waiting, false);
        break;
    case DaemonUnwell:
        set_daemon("the daemon is not well", false);
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
        publish_area(event, time);
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

// Retained only while the area is in force: nothing would remove it otherwise.
void Publisher::publish_area(const Event &event, SystemTime time)
{
    const std::string topic = topics_.area(event.rule);
    const bool inside = event.kind == Event::Kind::AreaEntered;
    broker_->send_event(
        {topic, area_message(event.rule, inside, time, settings_.names, event.participants),
         areas_.contains(topic)});
}

void Publisher::publish_frames()
{
    for (auto &[stream, limiter] : frames_) {
        if (const auto frame = limiter.next(now_.at))
            broker_->send_frame(
                topics_.frames(stream),
                frame_message(frame->detections, frame->time, frame->size, settings_.names));
    }
}

void Publisher::status(const Moment &now, const DaemonStatus &status)
{
    now_ = now;
    const auto scene = scene_of(status);
    if (!scene)
        return;
    maker_.set_scene(scene);
    frame_size_ = scene->frame;
    set_areas(scene->rules);
    broker_->set_state(topics_.scene(), scene_message(*scene));
    if (settings_.discovery.empty())
        return;
    for (const auto &[topic, payload] : discovery_states(scene->rules, settings_, topics_))
        broker_->set_state(topic, payload);
}

// Nothing is inside of an area that is new; one that is no longer there has no state.
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
    for (const std::string &topic : before) {
        if (!areas_.contains(topic))
            broker_->set_state(topic, "");
    }
}

void Publisher::report_losses(const Broker::Report &broker)
{
    const Losses losses{broker.frames_dropped, broker.events_dropped, results_missed_};
    if (losses == reported_ || !broker.connected || now_.at < losses_due_)
        return;
    reported_ = losses;
    losses_due_ = now_.at + losses_interval;
    broker_->send_event({topics_.lost(), losses_message(losses, now_.time)});
    say(formatted("lost so far: %" PRIu64 " frames, %" PRIu64 " events, %" PRIu64
                  " results of the daemon",
                  losses.frames, losses.events, losses.results));
}

} // namespace va::mqtt
