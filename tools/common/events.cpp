#include "tools/common/events.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <utility>

namespace
{

using Kind = Event::Kind;

// Of a record of vmf: a mask for each code, and the code of lines; the others are of areas.
constexpr std::size_t alarm_codes = 4;
constexpr int line_code = 1;

// From this difference on a number is a step back: a daemon that began anew.
constexpr std::uint32_t smallest_step_back = 0x80000000;

// How what begins ends.
struct Course {
    Kind beginning;
    std::optional<Kind> end; // not told of a line
    Elapsed EventRests::*rest;
};
constexpr Course courses[] = {
    {Kind::ObjectAppeared, Kind::ObjectLeft, &EventRests::object},
    {Kind::LineCrossed, std::nullopt, &EventRests::line},
    {Kind::AreaEntered, Kind::AreaLeft, &EventRests::area},
    {Kind::TamperBegan, Kind::TamperEnded, &EventRests::tamper},
};

const Course &course_of(const Event &beginning)
{
    return *std::ranges::find(courses, beginning.kind, &Course::beginning);
}

} // namespace

const char *name_beginning(AlarmRule::Source source)
{
    return source == AlarmRule::Source::Line ? "CrossLine.C" : "ObjectDetection.O";
}

std::string name_of(const AlarmRule &rule)
{
    if (!rule.number)
        return "event " + std::to_string(rule.event) + " bit " + std::to_string(rule.bit);
    return name_beginning(rule.source) + std::to_string(*rule.number);
}

EventMaker::EventMaker(Sink sink, EventRests rests) : sink_(std::move(sink)), rests_(rests) {}

void EventMaker::set_rules(std::span<const AlarmRule> rules)
{
    rules_.assign(rules.begin(), rules.end());
}

void EventMaker::take(const Record &record)
{
    pass(record.at);
    const std::size_t stream = index_of(record.kind);
    if (record.kind.name == "od") {
        if (const auto number = result_number(record.payload))
            take_number(*number, record.at);
        take_sightings(stream, objects_in(record.payload), record.at);
    } else if (record.kind.name == "fd") {
        take_sightings(stream, faces_in(record.payload), record.at);
    } else if (record.kind.name == "vmf") {
        take_alarms(stream, Words(record.payload), record.at);
    } else if (TAMPER_RECORDS_ARE_ALARMS) {
        show({stream, 0, 0}, {.kind = Kind::TamperBegan, .at = record.at});
    }
}

void EventMaker::set_connected(const StreamKind &kind, bool connected, Elapsed now)
{
    const auto is_here = [this] { return std::ranges::count(connected_, true) > 0; };
    const bool was_here = is_here();
    if (std::exchange(connected_[index_of(kind)], connected) == connected)
        return;
    if (!connected) {
        end_where([&](const Key &key, const Event &) { return std::get<0>(key) == index_of(kind); },
                  now, true);
        if (kind.name == "od")
            result_.reset();
    }
    if (is_here() != was_here)
        sink_({.kind = was_here ? Kind::DaemonGone : Kind::DaemonHere, .at = now});
}

void EventMaker::set_verdict(const Verdict &verdict, Elapsed now)
{
    if (verdict.status == IS_WELL) {
        sink_({.kind = Kind::DaemonWell, .at = now});
        return;
    }
    if (verdict.status != NO_STATUS) // else records come as before
        end_where([](const Key &, const Event &) { return true; }, now, true);
    sink_({.kind = Kind::DaemonUnwell, .at = now, .why = verdict.text});
}

void EventMaker::pass(Elapsed now)
{
    end_where([&](const Key &,
                  const Event &event) { return now - event.last >= rests_.*course_of(event).rest; },
              now, false);
}

void EventMaker::take_number(std::uint32_t number, Elapsed at)
{
    const std::uint32_t step = result_ ? number - *result_ : 1;
    if (step > 1 && step < smallest_step_back)
        sink_({.kind = Kind::RecordsMissed, .at = at, .missed = step - 1});
    result_ = number;
}

void EventMaker::take_sightings(std::size_t stream, const std::vector<Sighting> &sightings,
                                Elapsed at)
{
    for (const Sighting &seen : sightings)
        show({stream, static_cast<std::uint32_t>(seen.kind), seen.number},
             {.kind = Kind::ObjectAppeared, .at = at, .from = seen, .to = seen});
}

void EventMaker::take_alarms(std::size_t stream, const Words &masks, Elapsed at)
{
    const std::size_t codes = std::min(masks.size(), alarm_codes);
    for (std::size_t event = 0; event < codes; ++event) {
        for (std::uint32_t mask = masks[event]; mask; mask &= mask - 1) {
            const int bit = std::countr_zero(mask);
            const AlarmRule rule = rule_of(static_cast<int>(event), bit);
            show({stream, static_cast<std::uint32_t>(event), static_cast<std::uint32_t>(bit)},
                 {.kind = rule.source == AlarmRule::Source::Line ? Kind::LineCrossed
                                                                 : Kind::AreaEntered,
                  .at = at,
                  .rule = rule});
        }
    }
}

void EventMaker::show(const Key &key, const Event &beginning)
{
    const auto [found, is_new] = there_.try_emplace(key, beginning);
    Event &event = found->second;
    if (is_new)
        event.first = event.at;
    event.last = beginning.at;
    event.to = beginning.to;
    if (is_new)
        sink_(event);
}

AlarmRule EventMaker::rule_of(int event, int bit) const
{
    const auto known = std::ranges::find_if(
        rules_, [=](const AlarmRule &rule) { return rule.event == event && rule.bit == bit; });
    if (known != rules_.end())
        return *known;
    return {event == line_code ? AlarmRule::Source::Line : AlarmRule::Source::Area, event, bit, {}};
}

template <class Ends>
void EventMaker::end_where(Ends ends, Elapsed now, bool cut_off)
{
    std::erase_if(there_, [&](const auto &entry) {
        const auto &[key, beginning] = entry;
        if (!ends(key, beginning))
            return false;
        if (const auto end = course_of(beginning).end) {
            Event event = beginning;
            event.kind = *end;
            event.at = now;
            event.cut_off = cut_off;
            sink_(event);
        }
        return true;
    });
}
