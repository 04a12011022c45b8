#include "tools/va_picture/svg.h"

#include "tools/common/text.h"

namespace
{

constexpr double tag_margin = 6;

} // namespace

bool overlap(const Rectangle &a, const Rectangle &b)
{
    return a.corner.x < b.corner.x + b.width && b.corner.x < a.corner.x + a.width &&
           a.corner.y < b.corner.y + b.height && b.corner.y < a.corner.y + a.height;
}

std::string text_at(Point at, const char *style, const std::string &text, const char *anchor)
{
    return formatted("<text x='%.1f' y='%.1f' class='%s' text-anchor='%s'>", at.x, at.y, style,
                     anchor) +
           text + "</text>\n";
}

std::string rectangle(const Rectangle &place, const char *style)
{
    return formatted("<rect class='%s' x='%.1f' y='%.1f' width='%.1f' height='%.1f'/>\n", style,
                     place.corner.x, place.corner.y, place.width, place.height);
}

double tag_width(const std::string &text)
{
    constexpr double letter = 8.6; // of a wide sans-serif, bold
    return letter * static_cast<double>(text.size()) + 2 * tag_margin;
}

std::string tag_at(Point corner, const std::string &text, const char *colour)
{
    constexpr double baseline = 15;
    return formatted("<rect x='%.1f' y='%.1f' width='%.1f' height='%.1f' rx='3' fill='%s'/>\n",
                     corner.x, corner.y, tag_width(text), TAG_HEIGHT, colour) +
           text_at({corner.x + tag_margin, corner.y + baseline}, "tag", text);
}
