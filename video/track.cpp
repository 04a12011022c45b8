#include "video/track.h"

namespace va::video
{

namespace
{

// Time constants of the estimates, seconds.
constexpr float position_constant = 0.04F;
constexpr float size_constant = 0.2F;
constexpr float group_velocity_constant = 0.5F; // of an object that is hidden in a group

constexpr float edge_gain = 0.5F; // towards a group's edge, each frame

constexpr float part_area = 0.6F;   // of the whole, at most
constexpr float part_inside = 0.8F; // of the part, at least

constexpr float steady_share = 0.05F; // of the mean of width and height
constexpr float steady_px = 2;

float seconds(VideoTime time)
{
    return static_cast<float>(time) / 1000;
}

float gain(float passed, float time_constant)
{
    return 1 - std::exp(-passed / time_constant);
}

bool is_part(const Box &part, const Box &whole)
{
    return part.area() < part_area * whole.area() &&
           intersection_area(part, whole) > part_inside * part.area();
}

// Where the picture cuts a side off, its known size counts.
Interval completed(Interval detected, Interval known, Interval picture)
{
    constexpr float near = 1.5F;
    const float size = std::max(detected.size(), known.size());
    if (std::abs(detected.begin - picture.begin) < near)
        return {detected.end - size, detected.end};
    if (std::abs(detected.end - picture.end) < near)
        return {detected.begin, detected.begin + size};
    return detected;
}

Box completed(const Box &detected, const Box &known, const Box &picture)
{
    const auto x = completed(detected.horizontal(), known.horizontal(), picture.horizontal());
    const auto y = completed(detected.vertical(), known.vertical(), picture.vertical());
    return {x.begin, y.begin, x.size(), y.size()};
}

// Both ends must have moved the same way, or a growing object would travel; of one that came in at
// the picture's edge only one end counts.
float travel_between(Interval first, Interval now, Interval picture)
{
    const float begin = now.begin - first.begin, end = now.end - first.end;
    if (now.begin <= picture.begin)
        return std::abs(end);
    if (now.end >= picture.end)
        return std::abs(begin);
    return begin * end > 0 ? std::min(std::abs(begin), std::abs(end)) : 0;
}

float travel_between(const Box &first, const Box &now, const Box &picture)
{
    return std::hypot(travel_between(first.horizontal(), now.horizontal(), picture.horizontal()),
                      travel_between(first.vertical(), now.vertical(), picture.vertical()));
}

// The nearest centre at which a box of `size` contains all of `extent`, or lies within it when it
// is the smaller one.
float fitted(float centre, float size, Interval extent)
{
    const float a = extent.begin + size / 2, b = extent.end - size / 2;
    return std::clamp(centre, std::min(a, b), std::max(a, b));
}

Point fitted(const Box &box, const Box &into)
{
    const auto [x, y] = box.centre();
    return {fitted(x, box.width, into.horizontal()), fitted(y, box.height, into.vertical())};
}

} // namespace

Track::Track(const Box &detected, VideoTime time)
    : box_(detected), first_(detected), steady_(detected.centre()), begin_(time), time_(time)
{
}

Box Track::predicted(VideoTime time) const
{
    return box_.centred_at(box_.centre() + velocity_ * seconds(time - time_));
}

bool Track::is_leaving(const Box &picture, VideoTime time) const
{
    constexpr float surely = 20; // pixels a second
    const Box box = predicted(time);
    return !picture.contains(box.centre()) || (box.x < picture.x && velocity_.x < -surely) ||
           (box.right() > picture.right() && velocity_.x > surely) ||
           (box.y < picture.y && velocity_.y < -surely) ||
           (box.bottom() > picture.bottom() && velocity_.y > surely);
}

float Track::gate(VideoTime time) const
{
    constexpr float least = 3;
    constexpr float known = 60, unknown = 300; // pixels a second
    const float uncertainty = detections_ < 3 ? unknown : known;
    return least + uncertainty * seconds(std::min<VideoTime>(time - time_, 500));
}

void Track::update(const Box &detected, const Box &picture, VideoTime time)
{
    const Box whole = completed(detected, box_, picture);
    const float passed = seconds(time - time_);
    const Box expected = predicted(time);
    const Point measured = is_part(whole, expected) ? fitted(expected, whole) : whole.centre();
    const Point error = measured - expected.centre();
    const float position_gain = gain(passed, position_constant);
    const float size_gain = gain(passed, size_constant);
    if (passed > 0)
        velocity_ =
            velocity_ + error * (position_gain * position_gain / (2 - position_gain) / passed);
    box_.width += (whole.width - box_.width) * size_gain;
    box_.height += (whole.height - box_.height) * size_gain;
    box_ = box_.centred_at(expected.centre() + error * position_gain);
    travel_ = std::max(travel_, travel_between(first_, whole, picture));
    ++detections_;
    time_ = time;
}

void Track::update_in_group(const Box &group, Edges own, VideoTime time)
{
    Box moved = predicted(time);
    const auto correction = [](bool low, float to_low, bool high, float to_high) {
        const float sum = (low ? to_low : 0) + (high ? to_high : 0);
        return edge_gain * (low && high ? sum / 2 : sum);
    };
    moved.x += correction(own.left, group.x - moved.x, own.right, group.right() - moved.right());
    moved.y += correction(own.top, group.y - moved.y, own.bottom, group.bottom() - moved.bottom());
    const Point before = box_.centre();
    const float passed = seconds(time - time_);
    box_ = moved.centred_at(fitted(moved, group));
    if (passed > 0)
        velocity_ = velocity_ + ((box_.centre() - before) * (1 / passed) - velocity_) *
                                    gain(passed, group_velocity_constant);
    time_ = time;
}

void Track::settle()
{
    const float slack = std::max(steady_px, steady_share * (box_.width + box_.height) / 2);
    const Point lag = box_.centre() - steady_;
    const float distance = length(lag);
    if (distance > slack)
        steady_ = steady_ + lag * (1 - slack / distance);
}

} // namespace va::video
