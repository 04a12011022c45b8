#pragma once

#include "client/record.h"

#include <cstdint>
#include <optional>
#include <vector>

// What is known of the entries of results: all on the stand-in, whose layout is ours
// (entries_sim.cpp), nothing but their size on the camera, where they are the chip's
// (entries_chip.cpp). The build takes one of the two.
namespace va
{

// An object or a face in a result.
struct Detection {
    enum class Kind { Moving, Static, Face };
    Kind kind;
    std::uint32_t number;
    std::int32_t x; // of the box, pixels of the video frame
    std::int32_t y;
    std::int32_t width;
    std::int32_t height;
    double centre_x; // as the chip has it; of a face the box's
    double centre_y;
    std::optional<double> score = {}; // how likely it is what it is said to be, 0..1
};

// "moving", "static" or "face".
const char *kind_word(Detection::Kind kind);

// One for each whole entry of a record of "od" or "fd"; none of the other streams, nor where the
// layout is not known.
std::vector<Detection> detections_in(const Record &record);

// Of a record of "od": the number of the result, by which a missing one shows, and of the picture
// in which the objects were detected. None where the layout is not known.
std::optional<std::uint32_t> result_number(const Record &record);
std::optional<std::uint32_t> picture_number(const Record &record);

// The bits of the alarm masks that are set in a record of "vmf"; none of the other streams.
struct Alarm {
    int event; // code: which of the masks
    int bit;
};
std::vector<Alarm> alarms_in(const Record &record);

// Whether every record of "ta" is an alarm.
extern const bool TAMPER_RECORDS_ARE_ALARMS;

// To which side a line is crossed when it alarms, seen from its start to its end.
enum class Crossing { Unknown, ToLeft, ToRight, Both };
Crossing crossing_of(std::int32_t direction);
// The direction of a setting by which a line alarms so; nothing where it is not known.
std::optional<std::int32_t> direction_of(Crossing crossing);

} // namespace va
