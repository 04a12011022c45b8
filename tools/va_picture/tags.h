#pragma once

#include "tools/va_picture/svg.h"

#include <vector>

namespace va::picture
{

// Finds places for tags within a frame so that none covers another, as long as there is room.
class Tags
{
public:
    Tags(double frame_width, double frame_height) : width_(frame_width), height_(frame_height) {}

    // Where a tag with this text goes that belongs at `wanted`: there, or as near above or below as
    // there is room.
    Point place(Point wanted, const std::string &text);

private:
    bool is_free(const Rectangle &tag) const;

    double width_;
    double height_;
    std::vector<Rectangle> taken_;
};

} // namespace va::picture
