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

constexpr float part_overlap = 0.5F; // of the narrower one's width, of two parts of one object
constexpr float part_gap = 0.8F;     // of the taller one's height, at most

constexpr VideoTime part_limit = 500; // two that came within so long, and have stayed together

constexpr float resting_speed = 15;         // pixels a second, at most
constexpr float resting_share = 0.5F;       // of the smaller one of two boxes, at one place
constexpr float resting_ratio = 4;          // between the sizes of one that rests and goes on
constexpr VideoTime resting_limit = 10'000; // how long one that is not seen is remembered

bool are_at_one_place(const Box &a, const Box &b)
{
    return intersection_area(a, b) > resting_share * std::min(a.area(), b.area());
}

// As a head, a body and a leg are.
bool are_stacked(const Box &a, const Box &b)
{
    const float across = std::min(a.right(), b.right()) - std::max(a.x, b.x);
    const float gap = std::max(a.y, b.y) - std::min(a.bottom(), b.bottom());
    return across > part_overlap * std::min(a.width, b.width) &&
           gap < part_gap * std::max(a.height, b.height);
}

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

// What has left the picture does not return; whatever enters there is another object. What was lost
// at rest may go on.
void Tracker::drop_lost(const Box &picture, VideoTime time)
{
    std::erase_if(moving_, [&](const MovingObject &object) {
        const Track &track = object.track;
        const VideoTime lost = time - track.last_detected();
        const bool outside = !picture.contains(track.predicted(time).centre());
        if (lost <= (object.id ? settings_.missing : unconfirmed_missing) &&
            (lost == 0 || !outside))
            return false;
        if (object.id && !outside && length(track.velocity()) < resting_speed)
            resting_.push_back({0, object.id, track.box(), true, track.last_detected()});
        return true;
    });
}

// Two tracks of one object are always detected in one box, or one above the other. The larger one
// stays, or the older one of two that are about as large.
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
        const auto [first, second] =
            std::minmax({a.track.first_detected(), b.track.first_detected()});
        if (settings_.in_parts && common == 0 && second - first < part_limit &&
            time - second > part_limit && are_stacked(a.track.box(), b.track.box()))
            return length(a.track.velocity() - b.track.velocity()) < duplicate_speed;
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

Tracker::MovingObject *Tracker::moving_with(std::uint32_t id)
{
    const auto found = std::ranges::find(moving_, id, &MovingObject::id);
    return found == moving_.end() ? nullptr : &*found;
}

// What a detector of stationary objects has found: one that has stopped there, or a new one.
Tracker::RestingObject Tracker::rest(const StationaryBox &stationary, VideoTime time)
{
    const auto &[key, box] = stationary;
    for (const auto &[track, id, alone, missed] : moving_) {
        if (id && length(track.velocity()) < resting_speed && are_at_one_place(track.box(), box))
            return {key, id, box, true, time};
    }
    for (RestingObject &object : resting_) {
        if (object.key == 0 && are_at_one_place(object.box, box))
            return {key, object.id, box, true, time};
    }
    return {key, ++last_id_, box, false, time};
}

void Tracker::update_resting(std::span<const StationaryBox> boxes, VideoTime time)
{
    for (RestingObject &object : resting_) {
        if (std::ranges::find(boxes, object.key, &StationaryBox::key) == boxes.end())
            object.key = 0;
    }
    for (const StationaryBox &stationary : boxes) {
        const auto known = std::ranges::find(resting_, stationary.key, &RestingObject::key);
        if (known == resting_.end())
            resting_.push_back(rest(stationary, time));
        else
            *known = {known->key, known->id, stationary.box, known->has_moved, time};
    }
    std::erase_if(resting_, [&](const RestingObject &object) {
        return object.key == 0 && (!object.has_moved || time - object.seen > resting_limit);
    });
}

// Is it above or below another, and on the same way?
bool Tracker::is_part(const MovingObject &object) const
{
    const Point way = object.track.box().centre() - object.track.first().centre();
    return settings_.in_parts && std::ranges::any_of(moving_, [&](const MovingObject &other) {
               const Point velocity = other.track.velocity();
               return other.id && are_stacked(object.track.box(), other.track.box()) &&
                      way.x * velocity.x + way.y * velocity.y > 0;
           });
}

// That of the object that rested where this one has begun, or a new one.
std::uint32_t Tracker::number_of(const Track &track)
{
    for (const auto &[key, id, box, has_moved, seen] : resting_) {
        const float ratio = track.box().area() / box.area();
        if (has_moved && !moving_with(id) && are_at_one_place(track.first(), box) &&
            ratio > 1 / resting_ratio && ratio < resting_ratio)
            return id;
    }
    return ++last_id_;
}

std::vector<TrackedObject> Tracker::report(const Box &picture, VideoTime time)
{
    std::vector<TrackedObject> objects;
    for (MovingObject &object : moving_) {
        if (object.id)
            object.track.settle();
        else if (is_confirmed(object) && is_part(object))
            object.track = Track(object.track.box(), time); // to be confirmed when it is alone
        else if (is_confirmed(object) && !object.track.is_leaving(picture, time))
            object.id = number_of(object.track);
        const auto is_same = [&](const RestingObject &resting) {
            return resting.key && resting.id == object.id && object.track.last_detected() < time;
        };
        if (object.id && std::ranges::none_of(resting_, is_same))
            objects.push_back({object.id, false, object.track.steady()});
    }
    for (const auto &[key, id, box, has_moved, seen] : resting_) {
        if (key && std::ranges::find(objects, id, &TrackedObject::id) == objects.end())
            objects.push_back({id, true, box});
    }
    return objects;
}

std::vector<TrackedObject> Tracker::update(std::span<const Box> moving,
                                           std::span<const StationaryBox> stationary,
                                           const Box &picture, VideoTime time)
{
    associate(moving, picture, time);
    drop_lost(picture, time);
    drop_duplicates(time);
    update_resting(stationary, time);
    return report(picture, time);
}

void Tracker::reset()
{
    moving_.clear();
    resting_.clear();
}

} // namespace va::video
