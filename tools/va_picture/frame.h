#pragma once

#include "tools/va_picture/picture.h"
#include "tools/va_picture/tags.h"

#include <string>

namespace va::picture
{

// Draws what is in the video frame, whose top left corner is the origin.
class Frame
{
public:
    static constexpr double WIDTH = 1260; // of any frame, so that text and strokes have one size

    explicit Frame(const Picture &picture);

    double height() const { return height_; }
    std::string drawing();

private:
    std::string ground() const;
    std::string outline(const MarkedShape &marked) const;
    std::string arrows(const MarkedShape &line) const;
    std::string arrow_across(const Shape &line, double side, const char *colour) const;
    std::string trail(const Trail &trail) const;
    std::string box(const Detection &seen) const;
    std::string tag(const MarkedShape &marked);
    std::string tag(const Detection &seen);

    Point place(const va::Point &point) const;
    Point place(const Trail::Place &place) const { return {place.x * scale_, place.y * scale_}; }
    Point tag_corner(const Shape &shape) const;

    const Picture &picture_;
    double scale_; // units in a pixel
    double height_;
    Tags tags_;
};

} // namespace va::picture
