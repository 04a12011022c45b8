#include "video/tracker.h"

#include <algorithm>

namespace va::video
{

namespace
{

constexpr VideoTime unconfirmed_missing = 120;
constexpr VideoTime together_limit = 3000; // two that are never apart for so long are one object
constexpr VideoTime duplicate_limit = 600; // the same, of one within the other, at one speed
constexpr float duplicate_share = 0.7F;    // of the smaller one
constexpr float duplicate_speed = 25;      // pixels a second, between the two

constexpr float stationary_overlap = 0.4F;
constexpr float stationary_speed = 15; // pixels a second, at most

} // namespace

bool Tracker::is_confirmed(const MovingObject &object) const
{
    const Track &track = object.track;
    const auto [side, length] = std::minmax(track.box().width, track.box().height);
    return track.detections() >= settings_.detections && track.detections() > 3 * object.missed &&
           track.last_detected() - track.first_detected() >= settings_.age &&
           track.travel() >= std::max({settings_.travel * side, settings_.travel * length / 2,
                                       settings_.travel_px});
}

void Tracker::associate(std::span<const Box> boxes, const Box &picture, VideoTime time)
{
    std::vector<Prediction> predictions;
    for (const auto &[track, id, alone, missed] : moving_)
        predictions.push_back(
            {track.predicted(time), track.gate(time), id != 0, track.is_leaving(picture, time)});
    Matches found = match(predictions, boxes);
    for (std::size_t i = 0; i < moving_.size(); ++i) {
        const Match &detected = found.matches[i];
        switch (detected.kind) {
        case Match::Kind::None:
            ++moving_[i].missed;
            break;
        case Match::Kind::Alone:
            moving_[i].track.update(detected.box, picture, time);
            moving_[i].alone = time;
            break;
        case Match::Kind::InGroup:
            moving_[i].track.update_in_group(detected.box, detected.own, time);
            break;
        }
    }
    if (settings_.in_parts)
        found.unassociated = join_fragments(std::move(found.unassociated));
    for (const Box &box : found.unassociated)
        moving_.push_back({Track(box, time), 0, time, 0});
}

// What has left the picture does not return; whatever enters there is another object.
void Tracker::drop_lost(const Box &picture, VideoTime time)
{
    std::erase_if(moving_, [&](const MovingObject &object) {
        const VideoTime lost = time - object.track.last_detected();
        const bool outside = !picture.contains(object.track.predicted(time).centre());
        return lost > (object.id ? settings_.missing : unconfirmed_missing) ||
               (lost > 0 && outside);
    });
}

// Two tracks of one object are always detected in one box. The larger one stays, or the older one
// of two that are about as large.
void Tracker::drop_duplicates(VideoTime time)
{
    const auto is_lesser = [](const MovingObject &a, const MovingObject &b) {
        const float ratio = a.track.box().area() / b.track.box().area();
        return ratio < duplicate_share || (ratio < 1 / duplicate_share && a.id > b.id);
    };
    const auto is_same = [&](const MovingObject &a, const MovingObject &b) {
        const float common = intersection_area(a.track.box(), b.track.box());
        const float smaller = std::min(a.track.box().area(), b.track.box().area());
        const VideoTime together = time - std::max(a.alone, b.alone);
        return (together > together_limit && common > 0) ||
               (together > duplicate_limit && common > duplicate_share * smaller &&
                length(a.track.velocity() - b.track.velocity()) < duplicate_speed);
    };
    std::vector<std::uint32_t> duplicates;
    for (const MovingObject &a : moving_) {
        if (std::ranges::any_of(moving_, [&](const MovingObject &b) {
                return a.id && b.id && a.id != b.id && is_lesser(a, b) && is_same(a, b);
            }))
            duplicates.push_back(a.id);
    }
    std::erase_if(moving_, [&](const MovingObject &object) {
        return std::ranges::find(duplicates, object.id) != duplicates.end();
    });
}

// That of the moving object that has stopped there, which is then no moving one any more; or a new
// one.
std::uint32_t Tracker::number_of_stationary(const Box &box)
{
    const auto found = std::ranges::find_if(moving_, [&](const MovingObject &object) {
        return object.id && length(object.track.velocity()) < stationary_speed &&
               overlap(object.track.box(), box) > stationary_overlap;
    });
    if (found == moving_.end())
        return ++last_id_;
    const std::uint32_t id = found->id;
    moving_.erase(found);
    return id;
}

void Tracker::update_stationary(std::span<const StationaryBox> boxes)
{
    std::vector<StationaryObject> now;
    for (const auto &[key, box] : boxes) {
        const auto known = std::ranges::find(stationary_, key, &StationaryObject::key);
        now.push_back(
            {key, known != stationary_.end() ? known->id : number_of_stationary(box), box});
    }
    stationary_ = std::move(now);
}

std::vector<TrackedObject> Tracker::report()
{
    std::vector<TrackedObject> objects;
    for (MovingObject &object : moving_) {
        if (object.id)
            object.track.settle();
        else if (is_confirmed(object))
            object.id = ++last_id_;
        if (object.id)
            objects.push_back({object.id, false, object.track.steady()});
    }
    for (const StationaryObject &object : stationary_)
        objects.push_back({object.id, true, object.box});
    return objects;
}

std::vector<TrackedObject> Tracker::update(std::span<const Box> moving,
                                           std::span<const StationaryBox> stationary,
                                           const Box &picture, VideoTime time)
{
    associate(moving, picture, time);
    drop_lost(picture, time);
    drop_duplicates(time);
    update_stationary(stationary);
    return report();
}

void Tracker::reset()
{
    moving_.clear();
    stationary_.clear();
}

} // namespace va::video
