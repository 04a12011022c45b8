#include "platform/ne3_val.h"
#include "records/records.h"
#include "tools/common/entries.h"

#include <cstring>
#include <iterator>

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

Sighting sighting_of(const SimObjectEntry &object)
{
    return {object.kind == SimObjectKind::stationary ? Sighting::Kind::Static
                                                     : Sighting::Kind::Moving,
            object.id,
            object.x,
            object.y,
            object.width,
            object.height};
}

Sighting sighting_of(const SimFaceEntry &face)
{
    return {Sighting::Kind::Face, face.id, face.x, face.y, face.width, face.height};
}

template <class Entry>
Entry first_in(std::span<const std::uint8_t> payload)
{
    Entry entry;
    std::memcpy(&entry, payload.data(), sizeof entry);
    return entry;
}

template <class Entry>
std::vector<Sighting> sightings_in(std::span<const std::uint8_t> payload)
{
    std::vector<Sighting> all;
    for (; payload.size() >= sizeof(Entry); payload = payload.subspan(sizeof(Entry)))
        all.push_back(sighting_of(first_in<Entry>(payload)));
    return all;
}

} // namespace

constinit const std::span<const Field> OBJECT_FIELDS = object_fields;
constinit const std::span<const Field> FACE_FIELDS = face_fields;
const bool TAMPER_RECORDS_ARE_ALARMS = true;

std::vector<Sighting> objects_in(std::span<const std::uint8_t> payload)
{
    return sightings_in<SimObjectEntry>(payload);
}

std::vector<Sighting> faces_in(std::span<const std::uint8_t> payload)
{
    return sightings_in<SimFaceEntry>(payload);
}

std::optional<std::uint32_t> result_number(std::span<const std::uint8_t> objects)
{
    if (objects.size() < sizeof(SimObjectEntry))
        return std::nullopt;
    return first_in<SimObjectEntry>(objects).result;
}

std::optional<std::uint32_t> picture_number(std::span<const std::uint8_t> objects)
{
    if (objects.size() < sizeof(SimObjectEntry))
        return std::nullopt;
    return first_in<SimObjectEntry>(objects).picture;
}

Crossing crossing_of(std::int32_t direction)
{
    switch (direction) {
    case NE3_VAL_OD_TO_RIGHT:
        return Crossing::ToRight;
    case NE3_VAL_OD_TO_LEFT:
        return Crossing::ToLeft;
    default:
        return Crossing::Both;
    }
}
