#include "tools/common/entries.h"

constinit const std::span<const Field> OBJECT_FIELDS;
constinit const std::span<const Field> FACE_FIELDS;
const bool TAMPER_RECORDS_ARE_ALARMS = false;

std::vector<Sighting> objects_in(std::span<const std::uint8_t>)
{
    return {};
}

std::vector<Sighting> faces_in(std::span<const std::uint8_t>)
{
    return {};
}

std::optional<std::uint32_t> result_number(std::span<const std::uint8_t>)
{
    return std::nullopt;
}

std::optional<std::uint32_t> picture_number(std::span<const std::uint8_t>)
{
    return std::nullopt;
}

Crossing crossing_of(std::int32_t)
{
    return Crossing::Unknown;
}
