#include "video/tracker.h"

#include "video/fragments.h"
#include "video/match.h"

#include <algorithm>

namespace
{

constexpr VideoTime noise_missing = 120;   // how long what is not told yet may stay away
constexpr VideoTime together_limit = 3000; // two that are never seen apart for so long are one
constexpr VideoTime double_limit = 600;    // the same, of one within the other, at one speed
constexpr float double_share = 0.7F;       // of the smaller one
constexpr float double_speed = 25;         // pixels a second, between the two

constexpr float standing_likeness = 0.4F;
constexpr float standing_speed = 15; // pixels a second, at most

} // namespace

bool Tracker::is_worth_telling(const Follow &follow) const
{
    const Track &track = follow.track;
    const auto [side, length] = std::minmax(track.box().width, track.box().height);
    return track.looks() >= settings_.looks && track.looks() > 3 * follow.missed &&
           track.seen() - track.born() >= settings_.age &&
           track.way() >=
               std::max({settings_.way * side, settings_.way * length / 2, settings_.way_px});
}

void Tracker::match(std::span<const Box> boxes, const Box &picture, VideoTime time)
{
    std::vector<Expected> expected;
    for (const auto &[track, id, alone, missed] : follows_)
        expected.push_back({track.expected_at(time), track.reach_at(time), id != 0,
                            track.is_leaving(picture, time)});
    const Matching matching = ::match(expected, boxes);
    for (std::size_t i = 0; i < follows_.size(); ++i) {
        const Sighting &sighting = matching.sightings[i];
        if (sighting.how == Sighting::How::alone) {
            follows_[i].track.see(sighting.box, picture, time);
            follows_[i].alone = time;
        } else if (sighting.how == Sighting::How::in_group) {
            follows_[i].track.see_within(sighting.box, sighting.own, time);
        } else {
            ++follows_[i].missed;
        }
    }
    for (const Box &box :
         settings_.in_parts ? join_fragments(matching.unclaimed) : matching.unclaimed)
        follows_.push_back({Track(box, time), 0, time, 0});
}

// What has left the picture will not come back; who comes in there is somebody else.
void Tracker::drop_lost(const Box &picture, VideoTime time)
{
    std::erase_if(follows_, [&](const Follow &follow) {
        const VideoTime lost = time - follow.track.seen();
        const bool outside = !picture.holds(follow.track.expected_at(time).centre());
        return lost > (follow.id ? settings_.missing : noise_missing) || (lost > 0 && outside);
    });
}

// Two tracks of one thing are always seen in one box. The larger one stays, or the older one of two
// that are about as large.
void Tracker::drop_doubles(VideoTime time)
{
    const auto is_lesser = [](const Follow &a, const Follow &b) {
        const float ratio = a.track.box().area() / b.track.box().area();
        return ratio < double_share || (ratio < 1 / double_share && a.id > b.id);
    };
    const auto is_one_thing = [&](const Follow &a, const Follow &b) {
        const float common = common_area(a.track.box(), b.track.box());
        const float smaller = std::min(a.track.box().area(), b.track.box().area());
        const VideoTime together = time - std::max(a.alone, b.alone);
        return (together > together_limit && common > 0) ||
               (together > double_limit && common > double_share * smaller &&
                length(a.track.velocity() - b.track.velocity()) < double_speed);
    };
    std::vector<std::uint32_t> doubles;
    for (const Follow &a : follows_) {
        if (std::ranges::any_of(follows_, [&](const Follow &b) {
                return a.id && b.id && a.id != b.id && is_lesser(a, b) && is_one_thing(a, b);
            }))
            doubles.push_back(a.id);
    }
    std::erase_if(follows_, [&](const Follow &follow) {
        return std::ranges::find(doubles, follow.id) != doubles.end();
    });
}

// The number of the moving thing that has come to stand there, which is no moving one any more; or
// a new one.
std::uint32_t Tracker::number_at(const Box &box)
{
    const auto found = std::ranges::find_if(follows_, [&](const Follow &follow) {
        return follow.id && length(follow.track.velocity()) < standing_speed &&
               likeness(follow.track.box(), box) > standing_likeness;
    });
    if (found == follows_.end())
        return ++last_id_;
    const std::uint32_t id = found->id;
    follows_.erase(found);
    return id;
}

void Tracker::take_standing(std::span<const StandingBox> boxes)
{
    std::vector<Standing> now;
    for (const StandingBox &box : boxes) {
        const auto known = std::ranges::find(standing_, box.key, &Standing::key);
        const std::uint32_t id = known != standing_.end() ? known->id : number_at(box.box);
        now.push_back({box.key, id, box.box});
    }
    standing_ = std::move(now);
}

std::vector<Tracked> Tracker::tell()
{
    std::vector<Tracked> told;
    for (Follow &follow : follows_) {
        if (follow.id)
            follow.track.settle();
        else if (is_worth_telling(follow))
            follow.id = ++last_id_;
        if (follow.id)
            told.push_back({follow.id, false, follow.track.steady()});
    }
    for (const Standing &standing : standing_)
        told.push_back({standing.id, true, standing.box});
    return told;
}

std::vector<Tracked> Tracker::look(std::span<const Box> moving,
                                   std::span<const StandingBox> standing, const Box &picture,
                                   VideoTime time)
{
    match(moving, picture, time);
    drop_lost(picture, time);
    drop_doubles(time);
    take_standing(standing);
    return tell();
}

void Tracker::forget()
{
    follows_.clear();
    standing_.clear();
}
