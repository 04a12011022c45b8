#include "tools/va_dump/filters.h"

#include "records/records.h"
#include "tools/common/command_line.h"
#include "tools/common/event_text.h"

#include <charconv>
#include <string>

namespace
{

constexpr std::size_t line_code = 1; // of the alarm masks

using Payload = std::span<const std::uint8_t>;

Sighting::Kind parse_kind(std::string_view text)
{
    for (const auto kind : {Sighting::Kind::Moving, Sighting::Kind::Static, Sighting::Kind::Face}) {
        if (text == kind_word(kind))
            return kind;
    }
    if (text == "dynamic") // as the chip calls it
        return Sighting::Kind::Moving;
    throw WrongUse("no kind is called " + std::string(text) + ", but moving, static, face");
}

std::uint32_t parse_number(std::string_view text, int base = 10)
{
    std::uint32_t number = 0;
    const auto [stop, error] =
        std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || stop != text.data() + text.size())
        throw WrongUse("no number: " + std::string(text));
    return number;
}

void require_layout()
{
    if (OBJECT_FIELDS.empty())
        throw WrongUse("what is in the chip's entries is not known: filter by line alone");
}

} // namespace

void Filters::add(std::string_view text)
{
    const std::size_t sign = text.find('=');
    const std::string_view name = text.substr(0, sign);
    const std::string_view value = text.substr(sign + 1);
    if (name == "line") {
        lines_.insert(parse_number(value));
    } else if (name == "id") {
        require_layout();
        ids_.insert(parse_number(value));
    } else if (name == "kind") {
        require_layout();
        kinds_.insert(parse_kind(value));
    } else {
        throw WrongUse("no filter is called " + std::string(name) + ", but kind, id, line");
    }
}

std::optional<Payload> Filters::select(const Record &record)
{
    if (empty())
        return record.payload;
    if (record.kind.name == "vmf") {
        const Words masks(record.payload);
        for (std::uint32_t bit = 0; masks.size() > line_code && bit < 32; ++bit) {
            if (masks[line_code] >> bit & 1 && want_line(bit))
                return record.payload;
        }
        return std::nullopt;
    }
    const bool is_objects = record.kind.name == "od";
    if (!are_about_objects() || (!is_objects && record.kind.name != "fd"))
        return std::nullopt;
    const std::vector<Sighting> all =
        is_objects ? objects_in(record.payload) : faces_in(record.payload);
    const std::size_t size = is_objects ? OD_ENTRY_SIZE : FD_ENTRY_SIZE;
    entries_.clear();
    for (std::size_t i = 0; i < all.size(); ++i) {
        const Payload entry = record.payload.subspan(i * size, size);
        if (want(all[i]))
            entries_.insert(entries_.end(), entry.begin(), entry.end());
    }
    return entries_.empty() ? std::nullopt : std::optional<Payload>(entries_);
}

bool Filters::want(const Event &event) const
{
    using enum Event::Kind;
    switch (event.kind) {
    case ObjectAppeared:
    case ObjectLeft:
        return empty() || (are_about_objects() && want(event.from));
    case LineCrossed:
        return empty() ||
               want_line(static_cast<std::uint32_t>(event.rule.number.value_or(event.rule.bit)));
    case AreaEntered:
    case AreaLeft:
    case TamperBegan:
    case TamperEnded:
        return empty();
    default:
        return true;
    }
}

bool Filters::want(const Sighting &seen) const
{
    return (kinds_.empty() || kinds_.contains(seen.kind)) &&
           (ids_.empty() || ids_.contains(seen.number));
}
