#include "video/match.h"

#include <algorithm>

namespace va::video
{

namespace
{

constexpr float confirmed_bonus = 0.5F;
constexpr float distance_weight = 0.5F;
constexpr float hidden_share = 0.3F; // of a track's box that a group hides, at least
constexpr float growth = 0.25F;      // of a box that is joined of parts, each way, at most

constexpr float nearly_all = 0.95F;
constexpr float leaving_slack = 3; // pixels

constexpr float adjacent = 3;           // pixels
constexpr float stacked_gap = 0.3F;     // of the taller one's height
constexpr float stacked_overlap = 0.6F; // of the narrower one's width

constexpr std::size_t none = SIZE_MAX;

struct Pair {
    std::size_t track, box;
    float score;
};

float score_of(const Prediction &track, const Box &box)
{
    const float size = (track.box.width + track.box.height) / 2 + track.gate;
    const float distance = length(track.box.centre() - box.centre());
    return overlap(track.box, box) + distance_weight / (1 + distance / size) +
           (track.confirmed ? confirmed_bonus : 0);
}

bool is_possible(const Prediction &track, const Box &box)
{
    if (track.leaving)
        return intersection_area(track.box.expanded(leaving_slack, leaving_slack), box) >
               nearly_all * box.area();
    return intersection_area(track.box.expanded(track.gate, track.gate), box) > 0;
}

bool are_fragments(const Box &a, const Box &b)
{
    const float across = std::min(a.right(), b.right()) - std::max(a.x, b.x);
    const float gap = std::max(a.y, b.y) - std::min(a.bottom(), b.bottom());
    return (across >= -adjacent && gap <= adjacent) ||
           (across >= stacked_overlap * std::min(a.width, b.width) &&
            gap <= stacked_gap * std::max(a.height, b.height));
}

bool is_part_of(const Prediction &track, const Box &box)
{
    const Box extent = track.box.expanded(growth * track.box.width + track.gate,
                                          growth * track.box.height + track.gate);
    return intersection_area(extent, box) > nearly_all * box.area();
}

// The best first.
std::vector<Pair> possible_pairs(std::span<const Prediction> tracks, std::span<const Box> boxes)
{
    std::vector<Pair> pairs;
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        for (std::size_t j = 0; j < boxes.size(); ++j) {
            if (is_possible(tracks[i], boxes[j]))
                pairs.push_back({i, j, score_of(tracks[i], boxes[j])});
        }
    }
    std::ranges::sort(pairs, std::ranges::greater(), &Pair::score);
    return pairs;
}

// Each box's track: the best pairs first.
std::vector<std::size_t> owners_of(std::span<const Pair> pairs, std::size_t boxes)
{
    std::vector<std::size_t> owners(boxes, none);
    for (const Pair &pair : pairs) {
        if (owners[pair.box] == none && std::ranges::count(owners, pair.track) == 0)
            owners[pair.box] = pair.track;
    }
    return owners;
}

// The tracks that share a box: its owner, and the confirmed ones without a box that it hides.
std::vector<std::size_t> members_of(std::size_t box, std::span<const std::size_t> owners,
                                    std::span<const Prediction> tracks, std::span<const Box> boxes)
{
    std::vector<std::size_t> members;
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        const Box &own = tracks[i].box;
        const bool hidden = tracks[i].confirmed && !tracks[i].leaving &&
                            std::ranges::count(owners, i) == 0 &&
                            intersection_area(own, boxes[box]) > hidden_share * own.area();
        if (owners[box] == i || hidden)
            members.push_back(i);
    }
    return members;
}

// The edges of the group that are this member's. Two members may share one, when one hides the
// other.
Edges edges_of(std::size_t member, std::span<const std::size_t> members,
               std::span<const Prediction> tracks)
{
    const auto is_outermost = [&](auto edge) {
        return std::ranges::all_of(members, [&](std::size_t other) {
            return edge(tracks[member].box) <= edge(tracks[other].box);
        });
    };
    return {is_outermost([](const Box &box) { return box.x; }),
            is_outermost([](const Box &box) { return -box.right(); }),
            is_outermost([](const Box &box) { return box.y; }),
            is_outermost([](const Box &box) { return -box.bottom(); })};
}

// A box without an owner is a part of the best track whose extent contains it.
bool add_part(std::size_t box, std::span<const Pair> pairs, std::span<const Prediction> tracks,
              std::span<const Box> boxes, std::vector<Match> &matches)
{
    for (const Pair &pair : pairs) {
        Match &found = matches[pair.track];
        if (pair.box != box || found.kind != Match::Kind::Alone ||
            !is_part_of(tracks[pair.track], boxes[box]) || !are_fragments(found.box, boxes[box]))
            continue;
        found.box = enclosing(found.box, boxes[box]);
        return true;
    }
    return false;
}

} // namespace

Matches match(std::span<const Prediction> tracks, std::span<const Box> boxes)
{
    const std::vector<Pair> pairs = possible_pairs(tracks, boxes);
    const std::vector<std::size_t> owners = owners_of(pairs, boxes.size());
    Matches result{std::vector<Match>(tracks.size()), {}};
    for (std::size_t j = 0; j < boxes.size(); ++j) {
        if (owners[j] == none)
            continue;
        const std::vector<std::size_t> members = members_of(j, owners, tracks, boxes);
        const auto kind = members.size() == 1 ? Match::Kind::Alone : Match::Kind::InGroup;
        for (const std::size_t i : members)
            result.matches[i] = {kind, boxes[j], edges_of(i, members, tracks)};
    }
    for (std::size_t j = 0; j < boxes.size(); ++j) {
        if (owners[j] == none && !add_part(j, pairs, tracks, boxes, result.matches))
            result.unassociated.push_back(boxes[j]);
    }
    return result;
}

std::vector<Box> join_fragments(std::vector<Box> boxes)
{
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        const auto other =
            std::find_if(boxes.begin() + static_cast<std::ptrdiff_t>(i) + 1, boxes.end(),
                         [&](const Box &box) { return are_fragments(boxes[i], box); });
        if (other == boxes.end())
            continue;
        boxes[i] = enclosing(boxes[i], *other);
        *other = boxes.back();
        boxes.pop_back();
        i = none; // the larger box may touch any other: from the first one again
    }
    return boxes;
}

} // namespace va::video
