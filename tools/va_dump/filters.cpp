#include "tools/va_dump/filters.h"

#include "tools/common/options.h"
#include "util/text.h"

#include <algorithm>

namespace va::dump
{

namespace
{

using Payload = std::span<const std::uint8_t>;

Detection::Kind parse_kind(std::string_view text)
{
    using enum Detection::Kind;
    for (const auto kind : {Moving, Static, Face}) {
        if (text == kind_word(kind))
            return kind;
    }
    if (text == "dynamic") // as the chip calls it
        return Moving;
    throw WrongUse("no kind is called " + std::string(text) + ", but moving, static, face");
}

// A number, or a name that begins as those of lines or areas do.
std::string parse_rule(std::string_view text, std::string_view beginning)
{
    const bool is_name = text.starts_with(beginning);
    const auto number = number_in<std::uint32_t>(is_name ? text.substr(beginning.size()) : text);
    if (!number)
        throw WrongUse(std::string(text) + " is neither a number nor a name such as " +
                       std::string(beginning) + '0');
    return std::string(is_name ? beginning : "") + std::to_string(*number);
}

void require_layout()
{
    if (OBJECT_FIELDS.empty())
        throw WrongUse("what is in the chip's entries is not known: filter by line or area alone");
}

} // namespace

void Filters::add(std::string_view text)
{
    const std::size_t sign = text.find('=');
    const std::string_view name = text.substr(0, sign);
    const std::string_view value = text.substr(sign + 1);
    if (name == "line") {
        lines_.insert(parse_rule(value, "CrossLine.C"));
    } else if (name == "area") {
        areas_.insert(parse_rule(value, "ObjectDetection.O"));
    } else if (name == "id") {
        require_layout();
        const auto id = number_in<std::uint32_t>(value);
        if (!id)
            throw WrongUse("no number: " + std::string(value));
        ids_.insert(*id);
    } else if (name == "kind") {
        require_layout();
        kinds_.insert(parse_kind(value));
    } else {
        throw WrongUse("no filter is called " + std::string(name) + ", but kind, id, line, area");
    }
}

bool Filters::have_names() const
{
    const auto is_name = [](const std::string &value) { return value.find('.') != value.npos; };
    return std::ranges::any_of(lines_, is_name) || std::ranges::any_of(areas_, is_name);
}

std::optional<Payload> Filters::select(const Record &record)
{
    if (empty())
        return record.payload;
    switch (record.stream) {
    case Stream::Vmf:
        if (std::ranges::any_of(alarms_in(record), [this](Alarm alarm) {
                return want_rule(rule_among(rules_, alarm));
            }))
            return record.payload;
        break;
    case Stream::Od:
    case Stream::Fd:
        if (are_about_objects())
            return select_entries(record);
        break;
    case Stream::Ta:
        break;
    }
    return std::nullopt;
}

std::optional<Payload> Filters::select_entries(const Record &record)
{
    const std::size_t size = info_of(record.stream).entry_words * sizeof(std::uint32_t);
    Payload rest = record.payload;
    entries_.clear();
    for (const Detection &each : detections_in(record)) {
        if (want_object(each.kind, each.number))
            entries_.insert(entries_.end(), rest.begin(),
                            rest.begin() + static_cast<std::ptrdiff_t>(size));
        rest = rest.subspan(size);
    }
    return entries_.empty() ? std::nullopt : std::optional<Payload>(entries_);
}

bool Filters::want(const Event &event) const
{
    using enum Event::Kind;
    switch (event.kind) {
    case ObjectAppeared:
    case ObjectLeft:
        return empty() || (are_about_objects() && want_object(event.from.kind, event.from.number));
    case LineCrossed:
    case AreaEntered:
    case AreaLeft:
        return empty() || want_alarm_of(event);
    case TamperBegan:
    case TamperEnded:
        return empty();
    case DaemonHere:
    case DaemonGone:
    case DaemonUnwell:
    case DaemonWell:
    case ResultsMissed:
        break;
    }
    return true;
}

bool Filters::want_alarm_of(const Event &event) const
{
    const auto wanted = [this](const Participant &each) {
        return want_object(each.kind, each.number);
    };
    return (!have_rules() || want_rule(event.rule)) &&
           (!are_about_objects() || std::ranges::any_of(event.participants, wanted));
}

bool Filters::want_object(Detection::Kind kind, std::uint32_t number) const
{
    return (kinds_.empty() || kinds_.contains(kind)) && (ids_.empty() || ids_.contains(number));
}

bool Filters::want_rule(const AlarmRule &rule) const
{
    const Values &values = rule.source == AlarmRule::Source::Line ? lines_ : areas_;
    return values.contains(std::to_string(rule.number.value_or(rule.bit))) ||
           values.contains(name_of(rule));
}

} // namespace va::dump
