#pragma once

#include "video/box.h"

#include <cstddef>
#include <span>
#include <vector>

// Which of the boxes seen is which of the things followed.

struct Expected {
    Box box;
    float reach;  // how far from there it may be, pixels
    bool told;    // it has a number, which counts for more than one that may be noise
    bool leaving; // what is seen of it only becomes less
};

struct Edges {
    bool left;
    bool right;
    bool top;
    bool bottom;
};

struct Sighting {
    enum class How { lost, alone, in_group };
    How how = How::lost;
    Box box;     // its own, or that of the group
    Edges own{}; // of the group: the edges that are this thing's
};

struct Matching {
    std::vector<Sighting> sightings; // of each thing expected
    std::vector<Box> unclaimed;      // boxes that are none of them
};

// A box goes to the thing it is most alike; further boxes of its own extent are parts of it. A told
// thing that gets none but lies within another's box forms a group with it.
Matching match(std::span<const Expected> things, std::span<const Box> boxes);
