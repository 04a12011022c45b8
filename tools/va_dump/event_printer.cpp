#include "tools/va_dump/event_printer.h"

#include "tools/common/event_text.h"
#include "tools/common/json.h"
#include "tools/common/standard_output.h"
#include "tools/common/text.h"
#include "tools/va_dump/rules.h"

#include <utility>

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;

// How long an answer with names is waited for. While the daemon's records come, reading them must
// not stop for so long that a line's alarm which lasts would count as a second one (EventRests).
constexpr seconds patience_at_first{1};
constexpr milliseconds patience_meanwhile{300};

// In the order of Event::Kind.
constexpr const char *names[] = {"daemon_here",  "daemon_gone",     "daemon_unwell",
                                 "daemon_well",  "object_appeared", "object_left",
                                 "line_crossed", "area_entered",    "area_left",
                                 "tamper_began", "tamper_ended",    "results_missed"};

std::string place_text(const Sighting &seen)
{
    return '{' + member("x", std::to_string(seen.x)) + ',' + member("y", std::to_string(seen.y)) +
           ',' + member("width", std::to_string(seen.width)) + ',' +
           member("height", std::to_string(seen.height)) + '}';
}

std::string object_members(const Event &event)
{
    return ',' + member("kind", quoted(kind_word(event.from.kind))) + ',' +
           member("id", std::to_string(event.from.number)) + ',' +
           member("from", place_text(event.from));
}

std::string rule_members(const AlarmRule &rule)
{
    return ',' + member("name", quoted(name_of(rule))) + ',' +
           member("event_code", std::to_string(rule.event)) + ',' +
           member("bit", std::to_string(rule.bit));
}

std::string end_members(const Event &event)
{
    return ',' + member("seconds", formatted("%.3f", seconds_of(event))) +
           (event.cut_off ? ',' + member("cut_off", "true") : "");
}

std::string members(const Event &event)
{
    using enum Event::Kind;
    switch (event.kind) {
    case ObjectAppeared:
        return object_members(event);
    case ObjectLeft:
        return object_members(event) + ',' + member("to", place_text(event.to)) +
               end_members(event);
    case LineCrossed:
    case AreaEntered:
        return rule_members(event.rule);
    case AreaLeft:
        return rule_members(event.rule) + end_members(event);
    case TamperEnded:
        return end_members(event);
    case DaemonUnwell:
        return ',' + member("why", quoted(event.why));
    case RecordsMissed:
        return ',' + member("results", std::to_string(event.missed));
    default:
        return "";
    }
}

} // namespace

std::string json_text(const Event &event, std::chrono::system_clock::time_point time)
{
    return '{' + member("time", quoted(iso_text(time))) + ',' +
           member("event", quoted(names[static_cast<std::size_t>(event.kind)])) + members(event) +
           '}';
}

EventPrinter::EventPrinter(Style style, Filters filters, std::uint64_t count, std::string directory)
    : style_(style),
      filters_(std::move(filters)),
      count_(count),
      directory_(std::move(directory)),
      events_([this](const Event &event) { tell(event); })
{
}

void EventPrinter::print(const Record &record)
{
    now_ = {record.time, record.at};
    events_.take(record);
}

void EventPrinter::connection(const Connection &connection)
{
    now_ = connection.moment;
    events_.set_connected(connection.kind, connection.connected, connection.moment.at);
}

void EventPrinter::verdict(const Moment &now, const Verdict &verdict)
{
    now_ = now;
    events_.set_verdict(verdict, now.at);
}

void EventPrinter::tick(const Moment &now)
{
    now_ = now;
    events_.pass(now.at);
    if (is_here_ && now.at >= names_due_)
        ask_names(patience_meanwhile);
}

// A daemon that is just starting does not answer yet.
void EventPrinter::ask_names(milliseconds patience)
{
    names_due_ = now_.at + seconds(10);
    if (directory_.empty())
        return;
    const DaemonStatus status = ask_daemon_status(directory_, patience);
    if (status.answer == DaemonStatus::Answer::Answered)
        events_.set_rules(rules_of(status));
    else if (status.answer != DaemonStatus::Answer::Unwritten)
        names_due_ = now_.at + seconds(2);
}

void EventPrinter::tell(const Event &event)
{
    if (event.kind == Event::Kind::DaemonHere || event.kind == Event::Kind::DaemonGone)
        is_here_ = event.kind == Event::Kind::DaemonHere;
    if (event.kind == Event::Kind::DaemonHere)
        ask_names(patience_at_first);
    if (told_ == count_ || !filters_.want(event))
        return;
    ++told_;
    write_line(style_ == Style::Json ? json_text(event, now_.time)
                                     : clock_text(now_.time) + "  " + event_text(event));
}
