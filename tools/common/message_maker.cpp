#include "tools/common/message_maker.h"

#include <algorithm>
#include <utility>

namespace va
{

namespace
{

// Whether the layout of its entries is.
bool is_known(Stream stream)
{
    return !info_of(stream).fields.empty();
}

} // namespace

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
            frames_.try_emplace(stream, stream, rate);
    }
    for (int number = 0; number < MAX_LINES; ++number)
        counts_[topics_.counter({AlarmRule::Source::Line, 0, 0, number})] = 0;
    if (source.capture.empty()) {
        events_.expect_scene();
        set_available(false, "waiting for the daemon");
    } else {
        set_available(true, "from a capture");
    }
    if (TAMPER_RECORDS_ARE_ALARMS && is_read(Stream::Ta))
        lasting_.insert(topics_.tamper());
    if (is_known(Stream::Od) && is_read(Stream::Od))
        lasting_.insert(topics_.motion());
    for (const std::string &topic : lasting_)
        set_state(topic, state_message(false, now_.time, names_));
}

void MessageMaker::earlier_states(const std::map<std::string, std::string> &retained)
{
    expect_states(retained);
    for (const auto &[topic, count] : counts_) {
        const auto rule = rules_.find(topic);
        if (known_counts_.insert(topic).second && rule != rules_.end())
            set_counter(rule->second, now_.time);
    }
    take_back_old_states();
}

void MessageMaker::expect_states(const std::map<std::string, std::string> &states)
{
    for (const auto &[topic, payload] : states) {
        if (topic.starts_with(topics_.events()))
            retained_.insert(topic);
        const auto line = counts_.find(topic);
        const auto count = count_in(payload);
        if (line == counts_.end() || !count || known_counts_.contains(topic))
            continue;
        line->second += *count;
        known_counts_.insert(topic);
        if (const auto rule = rules_.find(topic); rule != rules_.end())
            set_counter(rule->second, now_.time);
    }
}

void MessageMaker::record(const Record &record)
{
    now_ = {record.time, record.at};
    ids_.forget_gone(now_.at);
    events_.take(record);
    add_frame(record);
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
    scene_is_known_ = true;
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
        take_object(event);
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
        target_.event(topics_.tamper(), state_message(event.kind == TamperBegan, time, names_),
                      true);
        break;
    case ResultsMissed:
        results_missed_ += event.missed;
        break;
    }
}

void MessageMaker::take_object(const Event &event)
{
    const Detection &object = event.from;
    if (event.kind == Event::Kind::ObjectAppeared)
        ids_.appear(object);
    const ObjectId id = ids_.of(object.kind, object.number).value();
    if (event.kind == Event::Kind::ObjectLeft)
        ids_.leave(object, now_.at);
    target_.event(topics_.track(id),
                  track_message(event, id, time_of(event.first), time_of(event.last)), false);
    set_motion();
}

void MessageMaker::set_motion()
{
    if (std::exchange(moving_, ids_.any_moving()) != moving_)
        set_state(topics_.motion(), state_message(moving_, now_.time, names_));
}

void MessageMaker::take_crossing(const Event &event, SystemTime time)
{
    const std::string topic = topics_.counter(event.rule);
    const auto line = counts_.find(topic);
    if (line != counts_.end()) // objects are counted, where it is known how many
        line->second += std::max<std::size_t>(event.participants.size(), 1);
    target_.event(topics_.line(event.rule),
                  line_message(event, count_of(event.rule), time, names_, ids_), false);
    const auto count = count_of(event.rule);
    if (!count || !rules_.contains(topic))
        return;
    // An event: where events outlive the program, so does the count that belongs to them.
    retained_.insert(topic);
    target_.event(topic, counter_message(event.rule, *count, time, names_), true);
}

// Retained only while the area is in force: nothing would remove it otherwise.
void MessageMaker::take_area(const Event &event, SystemTime time)
{
    const std::string topic = topics_.area(event.rule);
    target_.event(topic, area_message(event, time, names_, ids_), rules_.contains(topic));
}

void MessageMaker::add_frame(const Record &record)
{
    const auto limiter = frames_.find(record.stream);
    if (limiter == frames_.end() || !is_known(record.stream))
        return;
    ObjectFrame frame{.stream = record.stream,
                      .time = record.time,
                      .size = frame_size_.value_or(Size()),
                      .picture = picture_number(record)};
    std::set<ObjectId> ids; // each once
    for (const Detection &seen : detections_in(record)) {
        const ObjectId id = ids_.of(seen.kind, seen.number).value();
        if (ids.insert(id).second)
            frame.objects.push_back({id, seen});
    }
    if (frame_size_ || frame.objects.empty())
        limiter->second.add(std::move(frame));
}

void MessageMaker::hand_on_frames()
{
    for (auto &[stream, limiter] : frames_) {
        const auto frame = limiter.next(now_, ids_);
        if (!frame)
            continue;
        if (target_.frame(topics_.frames(stream), frame_message(*frame), frame->picture))
            limiter.was_sent(*frame);
        else
            limiter.was_dropped(now_.at);
    }
}

// Nothing is inside of an area that is new, and a new line was crossed as often as is known; what
// is no longer there has no state.
void MessageMaker::set_rules(const std::vector<AlarmRule> &rules)
{
    const std::map<std::string, AlarmRule> before = std::exchange(rules_, {});
    for (const AlarmRule &rule : rules) {
        const bool is_line = rule.source == AlarmRule::Source::Line;
        const std::string topic = is_line ? topics_.counter(rule) : topics_.area(rule);
        rules_.emplace(topic, rule);
        if (before.contains(topic))
            continue;
        if (is_line)
            set_counter(rule, now_.time);
        else
            set_state(topic, empty_area_message(rule, now_.time, names_));
    }
    take_back_old_states();
}

std::optional<std::uint64_t> MessageMaker::count_of(const AlarmRule &line) const
{
    const auto found = counts_.find(topics_.counter(line));
    return found != counts_.end() && known_counts_.contains(found->first)
               ? std::optional(found->second)
               : std::nullopt;
}

void MessageMaker::set_counter(const AlarmRule &line, SystemTime time)
{
    if (const auto count = count_of(line))
        set_state(topics_.counter(line), counter_message(line, *count, time, names_));
}

void MessageMaker::set_state(const std::string &topic, const std::string &payload)
{
    retained_.insert(topic);
    target_.state(topic, payload);
}

void MessageMaker::take_back_old_states()
{
    std::erase_if(retained_, [this](const std::string &topic) {
        const bool may_be_in_force = !scene_is_known_ && counts_.contains(topic);
        if (may_be_in_force || rules_.contains(topic) || lasting_.contains(topic))
            return false;
        target_.state(topic, "");
        return true;
    });
}

} // namespace va
