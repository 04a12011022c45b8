#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

// Geometry of a picture: pixels from its top left corner, x to the right and y down.
namespace va::video
{

struct Point {
    float x = 0;
    float y = 0;

    friend Point operator+(Point a, Point b) { return {a.x + b.x, a.y + b.y}; }
    friend Point operator-(Point a, Point b) { return {a.x - b.x, a.y - b.y}; }
    friend Point operator*(Point point, float factor)
    {
        return {point.x * factor, point.y * factor};
    }
};

inline float length(Point vector)
{
    return std::hypot(vector.x, vector.y);
}

struct Box {
    float x = 0; // its left edge
    float y = 0; // its top edge
    float width = 0;
    float height = 0;

    float right() const { return x + width; }
    float bottom() const { return y + height; }
    float area() const { return width * height; }
    Point centre() const { return {x + width / 2, y + height / 2}; }

    bool contains(Point point) const
    {
        return x <= point.x && point.x < right() && y <= point.y && point.y < bottom();
    }
    Box centred_at(Point centre) const
    {
        return {centre.x - width / 2, centre.y - height / 2, width, height};
    }
    Box scaled(float factor) const
    {
        return {factor * x, factor * y, factor * width, factor * height};
    }
    Box expanded(float horizontally, float vertically) const
    {
        return {x - horizontally, y - vertically, width + 2 * horizontally,
                height + 2 * vertically};
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
    int width; // pixels, 1..65535
    int height;

    Box extent() const { return {0, 0, static_cast<float>(width), static_cast<float>(height)}; }
};

// Where a box of the video is in the frame: the video keeps its shape there, with bars at its sides
// or above and below.
inline Box in_frame(const Box &box, FrameSize frame, FrameSize video)
{
    const Box outer = frame.extent();
    const Box inner = video.extent();
    const float scale = std::min(outer.width / inner.width, outer.height / inner.height);
    return {(outer.width - scale * inner.width) / 2 + scale * box.x,
            (outer.height - scale * inner.height) / 2 + scale * box.y, scale * box.width,
            scale * box.height};
}

// Milliseconds of the video, or of the clock for a source without times of its own.
using VideoTime = std::int64_t;

} // namespace va::video
