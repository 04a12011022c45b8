#include "video/track.h"

namespace
{

// Seconds in which an estimate has followed its measurements by about two thirds.
constexpr float place_follows = 0.04F;
constexpr float size_follows = 0.2F;
constexpr float velocity_follows = 0.5F; // of what is hidden in a group

constexpr float edge_follows = 0.5F; // of the way to a group's edge, in one look

constexpr float part_area = 0.6F;   // of the whole, at most
constexpr float part_inside = 0.8F; // of the part, at least

constexpr float steady_share = 0.05F; // of the mean of width and height
constexpr float steady_px = 2;

float seconds(VideoTime time)
{
    return static_cast<float>(time) / 1000;
}

float gain(float passed, float follows)
{
    return 1 - std::exp(-passed / follows);
}

bool is_part(const Box &part, const Box &whole)
{
    return part.area() < part_area * whole.area() &&
           common_area(part, whole) > part_inside * part.area();
}

// One way of a box or a picture.
struct Extent {
    float begin;
    float end;

    float size() const { return end - begin; }
};

Extent across(const Box &box)
{
    return {box.x, box.right()};
}

Extent down(const Box &box)
{
    return {box.y, box.bottom()};
}

bool ends_with(float edge, float picture)
{
    constexpr float near = 1.5F;
    return std::abs(edge - picture) < near;
}

// What the picture cuts off is as large as it was known to be.
Extent completed(Extent seen, Extent known, Extent picture)
{
    const float size = std::max(seen.size(), known.size());
    if (ends_with(seen.begin, picture.begin))
        return {seen.end - size, seen.end};
    if (ends_with(seen.end, picture.end))
        return {seen.begin, seen.begin + size};
    return seen;
}

Box completed(const Box &seen, const Box &known, const Box &picture)
{
    const Extent x = completed(across(seen), across(known), across(picture));
    const Extent y = completed(down(seen), down(known), down(picture));
    return {x.begin, y.begin, x.size(), y.size()};
}

// Both ends must have gone the same way, or what became larger would have moved; what came in from
// the picture's edge has one end to tell by.
float way_between(Extent first, Extent now, Extent picture)
{
    const float begin = now.begin - first.begin;
    const float end = now.end - first.end;
    if (now.begin <= picture.begin)
        return std::abs(end);
    if (now.end >= picture.end)
        return std::abs(begin);
    return begin * end > 0 ? std::min(std::abs(begin), std::abs(end)) : 0;
}

float way_between(const Box &first, const Box &now, const Box &picture)
{
    return std::hypot(way_between(across(first), across(now), across(picture)),
                      way_between(down(first), down(now), down(picture)));
}

// The nearest centre at which a box of `size` holds all of `extent`, or lies in it when it is the
// smaller one.
float fitted(float centre, float size, float begin, float extent)
{
    const float a = begin + size / 2;
    const float b = begin + extent - size / 2;
    return std::clamp(centre, std::min(a, b), std::max(a, b));
}

Place fitted(const Box &box, const Box &into)
{
    const Place centre = box.centre();
    return {fitted(centre.x, box.width, into.x, into.width),
            fitted(centre.y, box.height, into.y, into.height)};
}

} // namespace

Track::Track(const Box &seen, VideoTime time)
    : box_(seen), first_(seen), steady_(seen.centre()), born_(time), time_(time), seen_(time)
{
}

Box Track::expected_at(VideoTime time) const
{
    return box_.around(box_.centre() + velocity_ * seconds(time - time_));
}

bool Track::is_leaving(const Box &picture, VideoTime time) const
{
    constexpr float surely = 20; // pixels a second
    const Box box = expected_at(time);
    return !picture.holds(box.centre()) || (box.x < picture.x && velocity_.x < -surely) ||
           (box.right() > picture.right() && velocity_.x > surely) ||
           (box.y < picture.y && velocity_.y < -surely) ||
           (box.bottom() > picture.bottom() && velocity_.y > surely);
}

float Track::reach_at(VideoTime time) const
{
    constexpr float least = 3;
    constexpr float known = 60; // pixels a second
    constexpr float unknown = 300;
    const float unsure = looks_ < 3 ? unknown : known;
    return least + unsure * seconds(std::min<VideoTime>(time - time_, 500));
}

void Track::see(const Box &cut, const Box &picture, VideoTime time)
{
    const Box seen = completed(cut, box_, picture);
    const float passed = seconds(time - time_);
    const Box expected = expected_at(time);
    const float follow = gain(passed, size_follows);
    const bool part = is_part(seen, expected);
    const Place measured = part ? fitted(expected, seen) : seen.centre();
    const Place error = measured - expected.centre();
    const float a = gain(passed, place_follows);
    if (passed > 0)
        velocity_ = velocity_ + error * (a * a / (2 - a) / passed);
    box_.width += (seen.width - box_.width) * follow;
    box_.height += (seen.height - box_.height) * follow;
    box_ = box_.around(expected.centre() + error * a);
    way_ = std::max(way_, way_between(first_, seen, picture));
    ++looks_;
    seen_ = time_ = time;
}

void Track::see_within(const Box &group, Edges own, VideoTime time)
{
    Box moved = expected_at(time);
    const auto follow = [](bool low, float to_low, bool high, float to_high) {
        return edge_follows * (low && high ? (to_low + to_high) / 2
                               : low       ? to_low
                               : high      ? to_high
                                           : 0);
    };
    moved.x += follow(own.left, group.x - moved.x, own.right, group.right() - moved.right());
    moved.y += follow(own.top, group.y - moved.y, own.bottom, group.bottom() - moved.bottom());
    const Place before = box_.centre();
    const float passed = seconds(time - time_);
    box_ = moved.around(fitted(moved, group));
    if (passed > 0)
        velocity_ = velocity_ + ((box_.centre() - before) * (1 / passed) - velocity_) *
                                    gain(passed, velocity_follows);
    seen_ = time_ = time;
}

void Track::settle()
{
    const float slack = std::max(steady_px, steady_share * (box_.width + box_.height) / 2);
    const Place lag = box_.centre() - steady_;
    const float distance = length(lag);
    if (distance > slack)
        steady_ = steady_ + lag * (1 - slack / distance);
}
