#pragma once

#include <string>

// Pieces of a drawing. Places and lengths are units of the drawing, y runs downwards.
namespace va::picture
{

struct Point {
    double x;
    double y;
};

// From its top left corner.
struct Rectangle {
    Point corner;
    double width;
    double height;
};

bool overlap(const Rectangle &a, const Rectangle &b);

// `style`: a class of the style sheet. `anchor`: "start", "middle" or "end".
std::string text_at(Point at, const char *style, const std::string &text,
                    const char *anchor = "start");

// The JPEG itself is in the drawing.
std::string jpeg_at(const Rectangle &place, const std::string &jpeg);

std::string rectangle(const Rectangle &place, const char *style);

// About how wide a tag's text is drawn.
double tag_width(const std::string &text);
inline constexpr double TAG_HEIGHT = 20;

// A label on a coloured ground.
std::string tag_at(Point corner, const std::string &text, const char *colour);

} // namespace va::picture
