#include "video/match.h"

#include "video/fragments.h"

#include <algorithm>
#include <limits>

namespace
{

constexpr float told_bonus = 0.5F;
constexpr float closeness_weight = 0.5F;
constexpr float hidden_share = 0.3F; // of a thing that a group hides, at least
constexpr float growth = 0.25F;      // of a thing that parts make up, each way, at most

constexpr float all_of_it = 0.95F;
constexpr float leaving_slack = 3; // pixels

constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

struct Pair {
    std::size_t thing;
    std::size_t box;
    float score;
};

float score_of(const Expected &thing, const Box &box)
{
    const float size = (thing.box.width + thing.box.height) / 2 + thing.reach;
    const float distance = length(thing.box.centre() - box.centre());
    return likeness(thing.box, box) + closeness_weight / (1 + distance / size) +
           (thing.told ? told_bonus : 0);
}

bool may_be(const Expected &thing, const Box &box)
{
    if (thing.leaving)
        return common_area(thing.box.grown(leaving_slack, leaving_slack), box) >
               all_of_it * box.area();
    return common_area(thing.box.grown(thing.reach, thing.reach), box) > 0;
}

std::vector<Pair> pairs_of(std::span<const Expected> things, std::span<const Box> boxes)
{
    std::vector<Pair> pairs;
    for (std::size_t i = 0; i < things.size(); ++i) {
        for (std::size_t j = 0; j < boxes.size(); ++j) {
            if (may_be(things[i], boxes[j]))
                pairs.push_back({i, j, score_of(things[i], boxes[j])});
        }
    }
    std::ranges::sort(pairs, std::ranges::greater(), &Pair::score);
    return pairs;
}

// Each thing's best box and each box's best thing, the best pairs first.
struct Claims {
    std::vector<std::size_t> box_of;
    std::vector<std::size_t> owner_of;

    Claims(std::span<const Pair> pairs, std::size_t things, std::size_t boxes)
        : box_of(things, none), owner_of(boxes, none)
    {
        for (const Pair &pair : pairs) {
            if (box_of[pair.thing] != none || owner_of[pair.box] != none)
                continue;
            box_of[pair.thing] = pair.box;
            owner_of[pair.box] = pair.thing;
        }
    }
};

// The things that share the box `box`: its owner, and the told ones without a box that it hides.
std::vector<std::size_t> members_of(std::size_t box, std::span<const Expected> things,
                                    std::span<const Box> boxes, const Claims &claims)
{
    std::vector<std::size_t> members;
    for (std::size_t i = 0; i < things.size(); ++i) {
        const bool hidden =
            claims.box_of[i] == none && things[i].told &&
            common_area(things[i].box, boxes[box]) > hidden_share * things[i].box.area();
        if (claims.owner_of[box] == i || hidden)
            members.push_back(i);
    }
    return members;
}

// True for the members whose edge is the group's, as both may be when they stand one before
// another.
template <class Edge>
bool is_outermost(std::size_t member, std::span<const std::size_t> members, Edge edge)
{
    return std::ranges::all_of(members,
                               [&](std::size_t other) { return edge(member) <= edge(other); });
}

Edges edges_of(std::size_t member, std::span<const std::size_t> members,
               std::span<const Expected> things)
{
    const auto box = [&](std::size_t i) -> const Box & { return things[i].box; };
    return {is_outermost(member, members, [&](std::size_t i) { return box(i).x; }),
            is_outermost(member, members, [&](std::size_t i) { return -box(i).right(); }),
            is_outermost(member, members, [&](std::size_t i) { return box(i).y; }),
            is_outermost(member, members, [&](std::size_t i) { return -box(i).bottom(); })};
}

bool is_part_of(const Expected &thing, const Box &box)
{
    const Box extent = thing.box.grown(growth * thing.box.width + thing.reach,
                                       growth * thing.box.height + thing.reach);
    return common_area(extent, box) > all_of_it * box.area();
}

// A box without an owner is a part of the first thing in the order of scores whose extent holds it.
bool add_part(std::size_t box, std::span<const Pair> pairs, std::span<const Expected> things,
              std::span<const Box> boxes, std::vector<Sighting> &sightings)
{
    for (const Pair &pair : pairs) {
        Sighting &sighting = sightings[pair.thing];
        if (pair.box != box || sighting.how != Sighting::How::alone ||
            !is_part_of(things[pair.thing], boxes[box]) ||
            !belong_together(sighting.box, boxes[box]))
            continue;
        sighting.box = united(sighting.box, boxes[box]);
        return true;
    }
    return false;
}

} // namespace

Matching match(std::span<const Expected> things, std::span<const Box> boxes)
{
    const std::vector<Pair> pairs = pairs_of(things, boxes);
    const Claims claims(pairs, things.size(), boxes.size());
    Matching matching;
    matching.sightings.resize(things.size());
    for (std::size_t j = 0; j < boxes.size(); ++j) {
        const std::vector<std::size_t> members = claims.owner_of[j] == none
                                                     ? std::vector<std::size_t>()
                                                     : members_of(j, things, boxes, claims);
        for (const std::size_t i : members) {
            const auto how = members.size() == 1 ? Sighting::How::alone : Sighting::How::in_group;
            matching.sightings[i] = {how, boxes[j], edges_of(i, members, things)};
        }
    }
    for (std::size_t j = 0; j < boxes.size(); ++j) {
        if (claims.owner_of[j] == none && !add_part(j, pairs, things, boxes, matching.sightings))
            matching.unclaimed.push_back(boxes[j]);
    }
    return matching;
}
