#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

// Places in a picture: pixels from its top left corner, x to the right and y down.

struct Place {
    float x = 0;
    float y = 0;

    friend Place operator+(Place a, Place b) { return {a.x + b.x, a.y + b.y}; }
    friend Place operator-(Place a, Place b) { return {a.x - b.x, a.y - b.y}; }
    friend Place operator*(Place place, float factor)
    {
        return {place.x * factor, place.y * factor};
    }
};

inline float length(Place vector)
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
    Place centre() const { return {x + width / 2, y + height / 2}; }

    bool holds(Place place) const
    {
        return x <= place.x && place.x < right() && y <= place.y && place.y < bottom();
    }
    Box around(Place centre) const
    {
        return {centre.x - width / 2, centre.y - height / 2, width, height};
    }
    Box scaled(float factor) const
    {
        return {factor * x, factor * y, factor * width, factor * height};
    }
    Box grown(float horizontally, float vertically) const
    {
        return {x - horizontally, y - vertically, width + 2 * horizontally,
                height + 2 * vertically};
    }
};

inline float common_area(const Box &a, const Box &b)
{
    const float width = std::min(a.right(), b.right()) - std::max(a.x, b.x);
    const float height = std::min(a.bottom(), b.bottom()) - std::max(a.y, b.y);
    return width > 0 && height > 0 ? width * height : 0;
}

// How much alike two boxes are: 0 apart, 1 the same.
inline float likeness(const Box &a, const Box &b)
{
    const float common = common_area(a, b);
    return common > 0 ? common / (a.area() + b.area() - common) : 0;
}

inline Box united(const Box &a, const Box &b)
{
    const float x = std::min(a.x, b.x);
    const float y = std::min(a.y, b.y);
    return {x, y, std::max(a.right(), b.right()) - x, std::max(a.bottom(), b.bottom()) - y};
}

// Milliseconds of the video, or of the clock for what has none of its own.
using VideoTime = std::int64_t;
