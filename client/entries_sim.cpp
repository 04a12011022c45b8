#include "client/entries.h"
#include "records/records.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace va
{

namespace
{

constexpr std::size_t word_size = sizeof(std::uint32_t);

constexpr Field object_fields[] = {
    {"id"},           {"kind", false, ODString}, {"x", true},        {"y", true}, {"width", true},
    {"height", true}, {"centre_x", true},        {"centre_y", true}, {"result"},  {"picture"}};
static_assert(std::size(object_fields) * word_size == sizeof(SimObjectEntry));

constexpr Field face_fields[] = {{"id"},           {"x", true}, {"y", true}, {"width", true},
                                 {"height", true}, {"score"},   {"angle"}};
static_assert(std::size(face_fields) * word_size == sizeof(SimFaceEntry));

// A line of any other direction alarms both ways, too.
constexpr struct CrossingCode {
    Crossing crossing;
    std::int32_t direction;
} crossings[] = {
    {Crossing::ToRight, SIM_TO_RIGHT}, {Crossing::ToLeft, SIM_TO_LEFT}, {Crossing::Both, 0}};

Detection detection_of(const SimObjectEntry &object)
{
    using enum Detection::Kind;
    const auto kind = object.kind == SimObjectKind::Stationary ? Static : Moving;
    return {kind,
            object.id,
            object.x,
            object.y,
            object.width,
            object.height,
            static_cast<double>(object.centre_x),
            static_cast<double>(object.centre_y)};
}

Detection detection_of(const SimFaceEntry &face)
{
    constexpr std::uint32_t certain = 100;
    return {Detection::Kind::Face,
            face.id,
            face.x,
            face.y,
            face.width,
            face.height,
            face.x + face.width / 2.0,
            face.y + face.height / 2.0,
            std::min(face.score, certain) / double{certain}};
}

template <class Entry>
Entry first_in(std::span<const std::uint8_t> payload)
{
    Entry entry;
    std::memcpy(&entry, payload.data(), sizeof entry);
    return entry;
}

template <class Entry>
std::vector<Detection> all_in(std::span<const std::uint8_t> payload)
{
    std::vector<Detection> all;
    for (; payload.size() >= sizeof(Entry); payload = payload.subspan(sizeof(Entry)))
        all.push_back(detection_of(first_in<Entry>(payload)));
    return all;
}

std::optional<std::uint32_t> number_in(const Record &record, std::uint32_t SimObjectEntry::*number)
{
    if (record.stream != Stream::Od || record.payload.size() < sizeof(SimObjectEntry))
        return std::nullopt;
    return first_in<SimObjectEntry>(record.payload).*number;
}

} // namespace

constinit const std::span<const Field> OBJECT_FIELDS = object_fields;
constinit const std::span<const Field> FACE_FIELDS = face_fields;
const bool TAMPER_RECORDS_ARE_ALARMS = true;

std::vector<Detection> detections_in(const Record &record)
{
    switch (record.stream) {
    case Stream::Od:
        return all_in<SimObjectEntry>(record.payload);
    case Stream::Fd:
        return all_in<SimFaceEntry>(record.payload);
    case Stream::Vmf:
    case Stream::Ta:
        break;
    }
    return {};
}

std::optional<std::uint32_t> result_number(const Record &record)
{
    return number_in(record, &SimObjectEntry::result);
}

std::optional<std::uint32_t> picture_number(const Record &record)
{
    return number_in(record, &SimObjectEntry::picture);
}

Crossing crossing_of(std::int32_t direction)
{
    const auto *found = std::ranges::find(crossings, direction, &CrossingCode::direction);
    return found == std::end(crossings) ? Crossing::Both : found->crossing;
}

std::optional<std::int32_t> direction_of(Crossing crossing)
{
    const auto *found = std::ranges::find(crossings, crossing, &CrossingCode::crossing);
    return found == std::end(crossings) ? std::nullopt : std::optional(found->direction);
}

} // namespace va
