#pragma once

#include "client/entries.h"
#include "client/record.h"

#include <deque>
#include <map>
#include <utility>
#include <vector>

// The way that moving objects have come in two seconds.
namespace va::picture
{

struct Trail {
    Detection::Kind kind;
    struct Place { // middle of the box, pixels
        double x;
        double y;
    };
    std::vector<Place> places; // two or more, the oldest first
};

class Trails
{
public:
    void take(const std::vector<Detection> &detections, Elapsed at);

    // Of what was seen at `until`, in the two seconds before `now`.
    std::vector<Trail> trails(const std::vector<Detection> &shown, Elapsed until,
                              Elapsed now) const;

private:
    using Key = std::pair<Detection::Kind, std::uint32_t>;
    struct Step {
        Trail::Place place;
        Elapsed at;
    };

    std::map<Key, std::deque<Step>> steps_;
};

} // namespace va::picture
