#include "tools/va_picture/tags.h"

#include <algorithm>

namespace va::picture
{

Point Tags::place(Point wanted, const std::string &text)
{
    constexpr double edge = 2;
    constexpr double step = TAG_HEIGHT + 2;
    const double width = tag_width(text);
    Rectangle tag{wanted, width, TAG_HEIGHT};
    tag.corner.x = std::clamp(wanted.x, edge, std::max(width_ - width - edge, edge));
    const double lowest = std::max(height_ - TAG_HEIGHT - edge, edge);
    const double first = std::clamp(wanted.y, edge, lowest);
    const int rows = static_cast<int>(height_ / step);
    for (int row = 0; row <= rows; ++row) {
        const double away = step * row;
        for (const double y : {first - away, first + away}) {
            tag.corner.y = y;
            if (y >= edge && y <= lowest && is_free(tag)) {
                taken_.push_back(tag);
                return tag.corner;
            }
        }
    }
    return {tag.corner.x, first};
}

bool Tags::is_free(const Rectangle &tag) const
{
    return std::ranges::none_of(taken_,
                                [&](const Rectangle &other) { return overlap(tag, other); });
}

} // namespace va::picture
