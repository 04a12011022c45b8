#include "tools/common/event_text.h"

#include "tools/common/text.h"

namespace
{

std::string object_text(const Event &event)
{
    return kind_word(event.from.kind) + (' ' + std::to_string(event.from.number));
}

std::string place_text(const Sighting &seen)
{
    const auto middle = [](std::int32_t from, std::int32_t size) {
        return std::to_string(std::int64_t{from} + size / 2);
    };
    return middle(seen.x, seen.width) + "," + middle(seen.y, seen.height);
}

std::string rule_text(const Event &event)
{
    const std::string name = name_of(event.rule);
    return (event.rule.source == AlarmRule::Source::Line ? "line " : "area ") +
           (event.rule.number ? name : '(' + name + ')');
}

std::string end_text(const Event &event)
{
    const double seconds = seconds_of(event); // 0 of what a single record told
    return (seconds > 0 ? formatted(" after %.1f s", seconds) : "") +
           (event.cut_off ? ", cut off" : "");
}

} // namespace

std::string event_text(const Event &event)
{
    switch (event.kind) {
    case Event::Kind::DaemonHere:
        return "daemon is here";
    case Event::Kind::DaemonGone:
        return "daemon is gone";
    case Event::Kind::DaemonUnwell:
        return event.why;
    case Event::Kind::DaemonWell:
        return "daemon is well again";
    case Event::Kind::ObjectAppeared:
        return object_text(event) + " appeared at " + place_text(event.from);
    case Event::Kind::ObjectLeft:
        return object_text(event) + " left" + end_text(event) + ", from " + place_text(event.from) +
               " to " + place_text(event.to);
    case Event::Kind::LineCrossed:
        return rule_text(event) + " crossed";
    case Event::Kind::AreaEntered:
        return rule_text(event) + " entered";
    case Event::Kind::AreaLeft:
        return rule_text(event) + " left" + end_text(event);
    case Event::Kind::TamperBegan:
        return "tamper alarm began";
    case Event::Kind::TamperEnded:
        return "tamper alarm ended" + end_text(event);
    case Event::Kind::RecordsMissed:
        return "results missed: " + std::to_string(event.missed);
    }
    return "";
}

const char *kind_word(Sighting::Kind kind)
{
    constexpr const char *words[] = {"moving", "static", "face"};
    return words[static_cast<std::size_t>(kind)];
}

double seconds_of(const Event &event)
{
    return std::chrono::duration<double>(event.last - event.first).count();
}
