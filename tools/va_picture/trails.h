#pragma once

#include "tools/common/entries.h"
#include "tools/common/record.h"

#include <deque>
#include <map>
#include <utility>
#include <vector>

// The way that moving objects have come in two seconds.

struct Trail {
    Sighting::Kind kind;
    struct Place { // middle of the box, pixels
        double x;
        double y;
    };
    std::vector<Place> places; // two or more, the oldest first
};

class Trails
{
public:
    void take(const std::vector<Sighting> &sightings, Elapsed at);

    // Of what was sighted at `until`, in the two seconds before `now`.
    std::vector<Trail> trails(const std::vector<Sighting> &shown, Elapsed until, Elapsed now) const;

private:
    using Key = std::pair<Sighting::Kind, std::uint32_t>;
    struct Step {
        Trail::Place place;
        Elapsed at;
    };

    std::map<Key, std::deque<Step>> steps_;
};
