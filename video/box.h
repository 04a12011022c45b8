#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

// Geometry of a picture: pixels from its top left corner, x to the right and y down.
namespace va::video
{

struct Point {
    float x = 0, y = 0;

    friend Point operator+(Point a, Point b) { return {a.x + b.x, a.y + b.y}; }
    friend Point operator-(Point a, Point b) { return {a.x - b.x, a.y - b.y}; }
    friend Point operator*(Point a, float factor) { return {a.x * factor, a.y * factor}; }
};

inline float length(Point vector)
{
    return std::hypot(vector.x, vector.y);
}

// One dimension of a box.
struct Interval {
    float begin, end;

    float size() const { return end - begin; }
};

struct Box {
    float x = 0, y = 0; // its left and its top edge
    float width = 0, height = 0;

    float right() const { return x + width; }
    float bottom() const { return y + height; }
    float area() const { return width * height; }
    Point centre() const { return {x + width / 2, y + height / 2}; }
    Interval horizontal() const { return {x, right()}; }
    Interval vertical() const { return {y, bottom()}; }

    bool contains(Point a) const { return x <= a.x && a.x < right() && y <= a.y && a.y < bottom(); }
    Box centred_at(Point a) const { return {a.x - width / 2, a.y - height / 2, width, height}; }
    Box scaled(float by) const { return {by * x, by * y, by * width, by * height}; }
    // By so much at each side.
    Box expanded(float across, float down) const
    {
        return {x - across, y - down, width + 2 * across, height + 2 * down};
    }
};

inline float intersection_area(const Box &a, const Box &b)
{
    const float width = std::min(a.right(), b.right()) - std::max(a.x, b.x);
    const float height = std::min(a.bottom(), b.bottom()) - std::max(a.y, b.y);
    return width > 0 && height > 0 ? width * height : 0;
}

// Intersection over union: 0 apart, 1 the same.
inline float overlap(const Box &a, const Box &b)
{
    const float common = intersection_area(a, b);
    return common > 0 ? common / (a.area() + b.area() - common) : 0;
}

// The smallest box that contains both.
inline Box enclosing(const Box &a, const Box &b)
{
    const float x = std::min(a.x, b.x);
    const float y = std::min(a.y, b.y);
    return {x, y, std::max(a.right(), b.right()) - x, std::max(a.bottom(), b.bottom()) - y};
}

struct FrameSize {
    int width, height; // pixels, 1..65535

    Box extent() const { return {0, 0, static_cast<float>(width), static_cast<float>(height)}; }
};

// Where a box of the video is in the frame: the video keeps its shape there, with bars at its sides
// or above and below.
inline Box in_frame(const Box &box, FrameSize frame, FrameSize video)
{
    const Box outer = frame.extent(), inner = video.extent();
    const float scale = std::min(outer.width / inner.width, outer.height / inner.height);
    const Box picture = inner.scaled(scale).centred_at(outer.centre()), inside = box.scaled(scale);
    return {picture.x + inside.x, picture.y + inside.y, inside.width, inside.height};
}

// Milliseconds of the video, or of the clock for a source without times of its own.
using VideoTime = std::int64_t;

} // namespace va::video
