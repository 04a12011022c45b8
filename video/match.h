#pragma once

#include "video/box.h"

#include <span>
#include <vector>

// Association: which of the boxes detected in a frame belongs to which of the tracks.
namespace va::video
{

// Where a track is expected.
struct Prediction {
    Box box;
    float gate;     // how far from there it may be, pixels
    bool confirmed; // it has a number, which counts for more than a track that may be noise
    bool leaving;   // less and less of it is visible
};

struct Edges {
    bool left, right, top, bottom;
};

// What was detected of one track.
struct Match {
    enum class Kind { None, Alone, InGroup };
    Kind kind = Kind::None;
    Box box;     // its own, or that of the group
    Edges own{}; // of the group: the edges that are this track's
};

struct Matches {
    std::vector<Match> matches;    // one for each prediction
    std::vector<Box> unassociated; // boxes of no track
};

// A box is associated with the track that it fits best; further boxes within the extent of a track
// are parts of it. A confirmed track without a box that lies within another's forms a group with
// it.
Matches match(std::span<const Prediction> tracks, std::span<const Box> boxes);

// Joins boxes that are likely to be parts of one object: they touch or nearly do, or lie above each
// other as a head, a body and legs do. The order of the result is unspecified.
std::vector<Box> join_fragments(std::vector<Box> boxes);

} // namespace va::video
