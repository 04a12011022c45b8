#include "platform/sim/entries.h"
#include "tools/entries.h"

#include <iterator>

namespace
{

constexpr std::size_t word_size = sizeof(std::uint32_t);

constexpr Field object_fields[] = {
    {"id"},           {"kind"},           {"x", true},        {"y", true}, {"width", true},
    {"height", true}, {"centre_x", true}, {"centre_y", true}, {"result"},  {"reserved"}};
static_assert(std::size(object_fields) == OBJECT_WORDS &&
              sizeof(SimObjectEntry) == OBJECT_WORDS * word_size);

constexpr Field face_fields[] = {{"id"},           {"x", true}, {"y", true}, {"width", true},
                                 {"height", true}, {"score"},   {"angle"}};
static_assert(std::size(face_fields) == FACE_WORDS &&
              sizeof(SimFaceEntry) == FACE_WORDS * word_size);

} // namespace

constinit const std::span<const Field> OBJECT_FIELDS = object_fields;
constinit const std::span<const Field> FACE_FIELDS = face_fields;
