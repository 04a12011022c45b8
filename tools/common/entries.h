#pragma once

#include "tools/common/field.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

// What is known of the entries of results: all on the stand-in, whose layout is ours
// (entries_sim.cpp), nothing but their size on the camera, where they are the chip's
// (entries_chip.cpp). The build takes one of the two.

// Empty where the layout is not known.
extern const std::span<const Field> OBJECT_FIELDS;
extern const std::span<const Field> FACE_FIELDS;

struct Sighting {
    enum class Kind { Moving, Static, Face };
    Kind kind;
    std::uint32_t number;
    std::int32_t x; // of the box, pixels of the video frame
    std::int32_t y;
    std::int32_t width;
    std::int32_t height;
};

// The entries of a payload of "od" or "fd"; none where the layout is not known.
std::vector<Sighting> objects_in(std::span<const std::uint8_t> payload);
std::vector<Sighting> faces_in(std::span<const std::uint8_t> payload);

// The number of the result whose objects they are, by which one that is missing shows; none where
// the layout is not known.
std::optional<std::uint32_t> result_number(std::span<const std::uint8_t> objects);

// The number that the picture has in which they were seen; none where the layout is not known.
std::optional<std::uint32_t> picture_number(std::span<const std::uint8_t> objects);

// Whether every record of "ta" tells of an alarm.
extern const bool TAMPER_RECORDS_ARE_ALARMS;

// To which side a line is crossed when it alarms, looking from its start to its end.
enum class Crossing { Unknown, ToLeft, ToRight, Both };
Crossing crossing_of(std::int32_t direction);
