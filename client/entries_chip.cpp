#include "client/entries.h"

namespace va
{

constinit const std::span<const Field> OBJECT_FIELDS;
constinit const std::span<const Field> FACE_FIELDS;
const bool TAMPER_RECORDS_ARE_ALARMS = false;

std::vector<Detection> detections_in(const Record &)
{
    return {};
}

std::optional<std::uint32_t> result_number(const Record &)
{
    return std::nullopt;
}

std::optional<std::uint32_t> picture_number(const Record &)
{
    return std::nullopt;
}

Crossing crossing_of(std::int32_t)
{
    return Crossing::Unknown;
}

std::optional<std::int32_t> direction_of(Crossing)
{
    return std::nullopt;
}

} // namespace va
