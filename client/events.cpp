#include "client/events.h"

#include "util/text.h"

#include <algorithm>
#include <set>
#include <utility>

namespace va
{

namespace
{

using Kind = Event::Kind;
using std::chrono::milliseconds;

// From this difference on a number is a step back: a daemon that was started again.
constexpr std::uint32_t smallest_step_back = 0x80000000;

// Between two results by which a crossing is found, and how late a result may follow its alarm. A
// result that its alarm follows is a little older.
constexpr milliseconds result_interval{150};
constexpr milliseconds result_before_alarm{20};
constexpr milliseconds results_kept{1000}; // of an engine that runs some are as young

// How what begins ends.
struct Course {
    Kind beginning;
    std::optional<Kind> end; // not reported of a line
    Elapsed EventTimeouts::*timeout;
};
constexpr Course courses[] = {
    {Kind::ObjectAppeared, Kind::ObjectLeft, &EventTimeouts::object},
    {Kind::LineCrossed, std::nullopt, &EventTimeouts::line},
    {Kind::AreaEntered, Kind::AreaLeft, &EventTimeouts::area},
    {Kind::TamperBegan, Kind::TamperEnded, &EventTimeouts::tamper},
};

const Course &course_of(const Event &beginning)
{
    return *std::ranges::find(courses, beginning.kind, &Course::beginning);
}

struct Place { // pixels
    double x;
    double y;
};

Place centre_of(const Detection &seen)
{
    const std::int64_t x = std::int64_t{seen.x} + seen.width / 2;
    const std::int64_t y = std::int64_t{seen.y} + seen.height / 2;
    return {static_cast<double>(x), static_cast<double>(y)};
}

Place in_pixels(Point point, Size frame)
{
    constexpr double full_scale = 10000;
    return {point.x * frame.width / full_scale, point.y * frame.height / full_scale};
}

// Which side of the line from `a` to `b` a point is on, seen from `a`: negative on the left.
double side(Place a, Place b, Place p)
{
    return (b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x);
}

// Unknown when the way from one point to another does not cross the line.
Crossing crossing(Place start, Place end, Place from, Place to)
{
    const bool was_left = side(start, end, from) < 0;
    const bool is_left = side(start, end, to) < 0;
    if (was_left == is_left || side(from, to, start) * side(from, to, end) > 0)
        return Crossing::Unknown;
    return is_left ? Crossing::ToLeft : Crossing::ToRight;
}

// Of a rectangle, whose first and third corner are opposite.
bool contains(const Shape &shape, Size frame, Place at)
{
    const Place first = in_pixels(shape.points[0], frame);
    const Place last = in_pixels(shape.points[2], frame);
    return first.x <= at.x && at.x < last.x && first.y <= at.y && at.y < last.y;
}

// Whether no line or area alarms for it.
bool is_ignored(const Detection &seen, const Scene &scene)
{
    return std::ranges::any_of(scene.shapes, [&](const Shape &shape) {
        return shape.kind == Shape::Kind::NoAlarm && shape.used &&
               contains(shape, scene.frame, centre_of(seen));
    });
}

bool alarms(const Shape &line, Crossing side)
{
    return side != Crossing::Unknown && (line.crossing == side || line.crossing == Crossing::Both);
}

std::vector<Participant> who_crossed(const Shape &line, Size frame,
                                     const std::vector<Detection> &before,
                                     const std::vector<Detection> &after)
{
    std::vector<Participant> all;
    for (const Detection &to : after) {
        const auto from = std::ranges::find_if(before, [&](const Detection &earlier) {
            return earlier.number == to.number && earlier.kind == to.kind;
        });
        if (from == before.end())
            continue;
        const Crossing side =
            crossing(in_pixels(line.points[0], frame), in_pixels(line.points[1], frame),
                     centre_of(*from), centre_of(to));
        if (alarms(line, side))
            all.push_back({to.kind, to.number, side});
    }
    return all;
}

std::vector<Participant> who_is_inside(const Shape &area, Size frame,
                                       const std::vector<Detection> &objects)
{
    std::vector<Participant> all;
    for (const Detection &seen : objects) {
        if (contains(area, frame, centre_of(seen)))
            all.push_back({seen.kind, seen.number, Crossing::Unknown});
    }
    return all;
}

std::string object_text(Detection::Kind kind, std::uint32_t number)
{
    return kind_word(kind) + (' ' + std::to_string(number));
}

std::string place_text(const Detection &seen)
{
    const Place centre = centre_of(seen);
    return formatted("%.0f,%.0f", centre.x, centre.y);
}

std::string rule_text(const Event &event)
{
    const std::string name = name_of(event.rule);
    return (event.rule.source == AlarmRule::Source::Line ? "line " : "area ") +
           (event.rule.number ? name : '(' + name + ')');
}

// " by moving 7 to the right, moving 8 to the left"
std::string participants_text(const Event &event)
{
    std::string text;
    for (const Participant &each : event.participants) {
        text += (text.empty() ? " by " : ", ") + object_text(each.kind, each.number);
        if (each.side != Crossing::Unknown)
            text += each.side == Crossing::ToLeft ? " to the left" : " to the right";
    }
    return text;
}

std::string end_text(const Event &event)
{
    const double seconds = seconds_of(event); // 0 of what a single record showed
    return (seconds > 0 ? formatted(" after %.1f s", seconds) : "") +
           (event.cut_off ? ", cut off" : "");
}

} // namespace

std::string event_text(const Event &event)
{
    switch (event.kind) {
    case Kind::DaemonHere:
        return "daemon is here";
    case Kind::DaemonGone:
        return "daemon is gone";
    case Kind::DaemonUnwell:
        return event.why;
    case Kind::DaemonWell:
        return "daemon is well again";
    case Kind::ObjectAppeared:
        return object_text(event.from.kind, event.from.number) + " appeared at " +
               place_text(event.from);
    case Kind::ObjectLeft:
        return object_text(event.from.kind, event.from.number) + " left" + end_text(event) +
               ", from " + place_text(event.from) + " to " + place_text(event.to);
    case Kind::LineCrossed:
        return rule_text(event) + " crossed" + participants_text(event) + ", " +
               std::to_string(event.count) + " so far";
    case Kind::AreaEntered:
        return rule_text(event) + " entered" + participants_text(event);
    case Kind::AreaLeft:
        return rule_text(event) + " left" + end_text(event);
    case Kind::TamperBegan:
        return "tamper alarm began";
    case Kind::TamperEnded:
        return "tamper alarm ended" + end_text(event);
    case Kind::ResultsMissed:
        return "results missed: " + std::to_string(event.missed);
    }
    return "";
}

double seconds_of(const Event &event)
{
    return std::chrono::duration<double>(event.last - event.first).count();
}

void RecentResults::add(std::vector<Detection> objects, Elapsed at)
{
    results_.push_back({at, std::move(objects)});
    while (results_.front().at < at - results_kept)
        results_.pop_front();
}

std::vector<Participant> RecentResults::participants(const Shape &shape, const Scene &scene,
                                                     Elapsed since) const
{
    std::vector<Participant> all;
    const Result *before = nullptr;
    for (const Result &result : results_) {
        const Result *const last = std::exchange(before, &result);
        if (result.at < since)
            continue;
        std::vector<Detection> objects = result.objects;
        std::erase_if(objects, [&](const Detection &seen) { return is_ignored(seen, scene); });
        if (shape.kind == Shape::Kind::Area)
            all = who_is_inside(shape, scene.frame, objects);
        else if (last && result.at - last->at <= result_interval)
            all = who_crossed(shape, scene.frame, last->objects, objects);
        if (!all.empty())
            break;
    }
    return all;
}

EventMaker::EventMaker(Sink sink, EventTimeouts timeouts)
    : sink_(std::move(sink)), timeouts_(timeouts)
{
}

void EventMaker::take(const Record &record)
{
    pass(record.at);
    switch (record.stream) {
    case Stream::Od:
        if (const auto number = result_number(record))
            take_number(*number, record.at);
        results_.add(take_detections(record), record.at);
        break;
    case Stream::Fd:
        take_detections(record);
        break;
    case Stream::Vmf:
        take_alarms(record);
        break;
    case Stream::Ta:
        if (TAMPER_RECORDS_ARE_ALARMS)
            show({record.stream, 0, 0},
                 {.kind = Kind::TamperBegan, .at = record.at, .first = record.at});
        break;
    }
    report_known(record.at);
}

void EventMaker::set_connected(Stream stream, bool connected, Elapsed now)
{
    const auto is_here = [this] { return std::ranges::count(connected_, true) > 0; };
    const bool was_here = is_here();
    if (std::exchange(connected_[index_of(stream)], connected) == connected)
        return;
    if (!connected) {
        end_where([&](const Key &key, const Event &) { return std::get<0>(key) == stream; }, now,
                  true);
        if (stream == Stream::Od) {
            result_.reset();
            results_.clear();
        }
    }
    if (is_here() == was_here)
        return;
    scene_.reset();
    scene_timeout_ = expects_scene_ ? now + std::chrono::seconds(1) : now;
    sink_({.kind = was_here ? Kind::DaemonGone : Kind::DaemonHere, .at = now});
}

void EventMaker::set_verdict(const Verdict &verdict, Elapsed now)
{
    if (verdict.status == IS_WELL) {
        sink_({.kind = Kind::DaemonWell, .at = now});
        return;
    }
    if (verdict.status != NO_STATUS) // else records arrive as before
        end_where([](const Key &, const Event &) { return true; }, now, true);
    sink_({.kind = Kind::DaemonUnwell, .at = now, .why = verdict.text});
}

void EventMaker::pass(Elapsed now)
{
    report_known(now);
    end_where(
        [&](const Key &, const Event &event) {
            return now - event.last >= timeouts_.*course_of(event).timeout;
        },
        now, false);
}

void EventMaker::finish(Elapsed now)
{
    for (auto &[key, active] : active_)
        report(active, now);
}

void EventMaker::take_number(std::uint32_t number, Elapsed at)
{
    const std::uint32_t step = result_ ? number - *result_ : 1;
    if (step > 1 && step < smallest_step_back)
        sink_({.kind = Kind::ResultsMissed, .at = at, .missed = step - 1});
    result_ = number;
}

std::vector<Detection> EventMaker::take_detections(const Record &record)
{
    std::vector<Detection> detections = detections_in(record);
    std::set<std::pair<Detection::Kind, std::uint32_t>> known; // one by each number, as in active_
    std::erase_if(detections, [&](const Detection &seen) {
        return !known.emplace(seen.kind, seen.number).second;
    });
    for (const Detection &seen : detections)
        show({record.stream, static_cast<std::uint32_t>(seen.kind), seen.number},
             {.kind = Kind::ObjectAppeared,
              .at = record.at,
              .first = record.at,
              .from = seen,
              .to = seen});
    return detections;
}

void EventMaker::take_alarms(const Record &record)
{
    for (const Alarm alarm : alarms_in(record)) {
        const AlarmRule rule = rule_of(alarm);
        show(
            {record.stream, static_cast<std::uint32_t>(alarm.event),
             static_cast<std::uint32_t>(alarm.bit)},
            {.kind = rule.source == AlarmRule::Source::Line ? Kind::LineCrossed : Kind::AreaEntered,
             .at = record.at,
             .first = record.at,
             .rule = rule});
    }
}

void EventMaker::show(const Key &key, const Event &beginning)
{
    const auto [found, is_new] = active_.try_emplace(key, Active{beginning});
    Active &active = found->second;
    if (!is_new && active.reported && !active.event.participants.empty() &&
        beginning.kind == Kind::LineCrossed) {
        active.earlier = std::move(active.event.participants); // now it may be another one
        active.event = beginning;
        active.reported = false;
    }
    active.event.last = beginning.at;
    active.event.to = beginning.to;
    if (!active.reported && is_known(active, beginning.at))
        report(active, beginning.at);
}

void EventMaker::report(Active &active, Elapsed now)
{
    if (std::exchange(active.reported, true))
        return;
    if (active.event.participants.empty() && !active.earlier.empty()) {
        active.event.participants = std::move(active.earlier); // the same crossing still
        return;
    }
    active.event.at = now;
    if (active.event.kind == Kind::LineCrossed)
        active.event.count = ++crossings_[name_of(active.event.rule)];
    sink_(active.event);
}

// What waited for the names of lines and areas, or for a result.
void EventMaker::report_known(Elapsed now)
{
    for (auto &[key, active] : active_) {
        if (!active.reported && is_known(active, now))
            report(active, now);
    }
}

// Whether all is known of a beginning that will be; fills in what was found.
bool EventMaker::is_known(Active &active, Elapsed now) const
{
    Event &event = active.event;
    if (event.kind != Kind::LineCrossed && event.kind != Kind::AreaEntered)
        return true;
    if (!scene_)
        return now >= scene_timeout_;
    if (!event.rule.number)
        event.rule = rule_of({event.rule.event, event.rule.bit});
    const Shape *const shape = scene_->shape_of(event.rule);
    if (!shape || !results_.any_since(event.first - results_kept))
        return true; // nobody sends any objects
    event.participants = results_.participants(*shape, *scene_, event.first - result_before_alarm);
    std::erase_if(event.participants, [&](const Participant &each) {
        return std::ranges::any_of(active.earlier, [&](const Participant &earlier) {
            return earlier.kind == each.kind && earlier.number == each.number;
        });
    });
    return !event.participants.empty() || now - event.first >= result_interval;
}

AlarmRule EventMaker::rule_of(Alarm alarm) const
{
    return rule_among(scene_ ? scene_->rules : std::vector<AlarmRule>(), alarm);
}

template <class Ends>
void EventMaker::end_where(Ends ends, Elapsed now, bool cut_off)
{
    for (auto entry = active_.begin(); entry != active_.end();) {
        if (!ends(entry->first, entry->second.event)) {
            ++entry;
            continue;
        }
        report(entry->second, now);
        Event event = std::move(entry->second.event);
        entry = active_.erase(entry);
        if (const auto end = course_of(event).end) {
            event.kind = *end;
            event.at = now;
            event.cut_off = cut_off;
            sink_(event);
        }
    }
}

} // namespace va
