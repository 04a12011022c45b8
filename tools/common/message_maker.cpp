#include "tools/common/message_maker.h"

#include <cerrno>

namespace va
{

MessageMaker::MessageMaker(const CameraNames &names, const Source &source, double rate,
                           MessageTarget &target)
    : names_(names),
      topics_(names),
      target_(target),
      events_([this](const Event &event) { take_event(event); }),
      now_{std::chrono::system_clock::now(), {}}
{
    const auto is_read = [&](Stream stream) {
        return std::ranges::count(source.streams, stream) > 0;
    };
    for (const Stream stream : {Stream::Od, Stream::Fd}) {
        if (rate > 0 && is_read(stream))
            frames_.emplace(stream, rate);
    }
    if (source.capture.empty()) {
        events_.expect_scene();
        set_available(false, "waiting for the daemon");
    } else {
        set_available(true, "from a capture");
    }
    if (TAMPER_RECORDS_ARE_ALARMS && is_read(Stream::Ta))
        target_.state(topics_.tamper(), tamper_message(false, now_.time, names_));
    // The states that an earlier run may have left behind.
    for (int number = 0; number < MAX_LINES; ++number)
        rule_topics_.insert(topics_.counter({AlarmRule::Source::Line, 0, 0, number}));
    for (int number = 0; number < MAX_AREAS; ++number)
        rule_topics_.insert(topics_.area({AlarmRule::Source::Area, 0, 0, number}));
    set_rules({});
}

void MessageMaker::earlier_states(const std::map<std::string, std::string> &) {}

void MessageMaker::record(const Record &record)
{
    now_ = {record.time, record.at};
    events_.take(record);
    const auto limiter = frames_.find(record.stream);
    if (!frame_size_ || limiter == frames_.end())
        return;
    std::vector<Detection> detections = detections_in(record);
    if (!detections.empty()) // else their layout is not known
        limiter->second.add(
            {std::move(detections), record.time, *frame_size_, picture_number(record)});
    hand_on_frames();
}

void MessageMaker::connection(const Connection &connection)
{
    now_ = connection.moment;
    events_.set_connected(connection.stream, connection.connected, now_.at);
}

void MessageMaker::status(const Moment &now, const Scene &scene)
{
    now_ = now;
    events_.set_scene(scene);
    frame_size_ = scene.frame;
    set_rules(scene.rules);
    target_.state(topics_.scene(), scene_message(scene));
}

void MessageMaker::verdict(const Moment &now, const Verdict &verdict)
{
    now_ = now;
    if (verdict.status == NO_STATUS) // which is no reason not to show what comes
        set_available(true, "the daemon cannot write its status");
    else
        events_.set_verdict(verdict, now_.at);
}

void MessageMaker::tick(const Moment &now)
{
    now_ = now;
    events_.pass(now.at);
    hand_on_frames();
}

void MessageMaker::finish(const Moment &now)
{
    now_ = now;
    events_.finish(now.at);
}

void MessageMaker::end()
{
    set_available(false, std::string(program_invocation_short_name) + " has ended");
}

void MessageMaker::set_available(bool online, const std::string &why)
{
    if (!availability_.since || online != availability_.online)
        availability_.since = now_.time;
    availability_.online = online;
    availability_.why = why;
    target_.state(topics_.available(), available_message(availability_));
}

void MessageMaker::take_event(const Event &event)
{
    using enum Event::Kind;
    // An alarm is reported when its participants are known, which is a little later.
    const bool is_alarm = event.kind == LineCrossed || event.kind == AreaEntered;
    const SystemTime time = time_of(is_alarm ? event.first : event.at);
    switch (event.kind) {
    case DaemonHere:
    case DaemonWell:
        set_available(true, "");
        break;
    case DaemonGone:
        frame_size_.reset(); // the next one may have another
        set_available(false, "the daemon has gone");
        break;
    case DaemonUnwell:
        set_available(false, event.why);
        break;
    case ObjectAppeared:
    case ObjectLeft:
        target_.event(topics_.track(event.from.number),
                      track_message(event, time_of(event.first), time_of(event.last)), false);
        break;
    case LineCrossed:
        take_crossing(event, time);
        break;
    case AreaEntered:
    case AreaLeft:
        take_area(event, time);
        break;
    case TamperBegan:
    case TamperEnded:
        target_.event(topics_.tamper(), tamper_message(event.kind == TamperBegan, time, names_),
                      true);
        break;
    case ResultsMissed:
        results_missed_ += event.missed;
        break;
    }
}

void MessageMaker::take_crossing(const Event &event, SystemTime time)
{
    target_.event(topics_.line(event.rule), line_message(event, time, names_), false);
    const std::string topic = topics_.counter(event.rule);
    crossings_[topic] = event.count;
    if (rule_topics_.contains(topic))
        target_.state(topic, counter_message(event.rule, event.count, time, names_));
}

// Retained only while the area is in force: nothing would remove it otherwise.
void MessageMaker::take_area(const Event &event, SystemTime time)
{
    const std::string topic = topics_.area(event.rule);
    const bool inside = event.kind == Event::Kind::AreaEntered;
    target_.event(topic, area_message(event.rule, inside, time, names_, event.participants),
                  rule_topics_.contains(topic));
}

void MessageMaker::hand_on_frames()
{
    for (auto &[stream, limiter] : frames_) {
        if (const auto frame = limiter.next(now_.at))
            target_.frame(topics_.frames(stream),
                          frame_message(frame->detections, frame->time, frame->size, names_),
                          frame->picture);
    }
}

// Nothing is inside of an area that is new, and a new line was crossed as often as is known; what
// is no longer there has no state.
void MessageMaker::set_rules(const std::vector<AlarmRule> &rules)
{
    const std::set<std::string> before = std::exchange(rule_topics_, {});
    for (const AlarmRule &rule : rules) {
        const bool is_line = rule.source == AlarmRule::Source::Line;
        const std::string topic = is_line ? topics_.counter(rule) : topics_.area(rule);
        rule_topics_.insert(topic);
        if (before.contains(topic))
            continue;
        target_.state(topic, is_line ? counter_message(rule, crossings_[topic], now_.time, names_)
                                     : area_message(rule, false, now_.time, names_));
    }
    for (const std::string &topic : before) {
        if (!rule_topics_.contains(topic))
            target_.state(topic, "");
    }
}

} // namespace va
