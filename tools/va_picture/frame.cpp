#include "tools/va_picture/frame.h"

#include "tools/va_picture/look.h"
#include "util/text.h"

#include <cmath>
#include <optional>

namespace va::picture
{

namespace
{

// The direction from one point to another, of length 1; none when they are too close to tell.
std::optional<Point> direction(Point from, Point to)
{
    const double distance = std::hypot(to.x - from.x, to.y - from.y);
    if (distance < 1)
        return std::nullopt;
    return Point{(to.x - from.x) / distance, (to.y - from.y) / distance};
}

// A triangle whose tip is `length` away from the middle of its foot.
std::string arrow(Point foot, Point along, double length, const char *colour)
{
    constexpr double half_width = 9;
    const Point across{-along.y * half_width, along.x * half_width};
    return formatted("<path fill='%s' d='M%.1f %.1f L%.1f %.1f L%.1f %.1f Z'/>\n", colour,
                     foot.x + across.x, foot.y + across.y, foot.x + along.x * length,
                     foot.y + along.y * length, foot.x - across.x, foot.y - across.y);
}

const Look &look_of(const MarkedShape &marked)
{
    return marked.lit ? ALARM_LOOK : picture::look_of(marked.shape.kind);
}

} // namespace

Frame::Frame(const Picture &picture)
    : picture_(picture),
      scale_(WIDTH / picture.frame.width),
      height_(picture.frame.height * scale_),
      tags_(WIDTH, height_)
{
}

std::string Frame::drawing()
{
    std::string text = ground();
    for (const MarkedShape &marked : picture_.shapes)
        text += outline(marked);
    for (const Trail &way : picture_.trails)
        text += trail(way);
    for (const Detection &seen : picture_.detections)
        text += box(seen);
    for (const MarkedShape &marked : picture_.shapes) // first, so that they stay where they are
        text += tag(marked);
    for (const Detection &seen : picture_.detections)
        text += tag(seen);
    return text;
}

// The still of the video, or where it would lie.
std::string Frame::ground() const
{
    constexpr int parts = 10;
    if (!picture_.still.empty())
        return jpeg_at({{0, 0}, WIDTH, height_}, picture_.still);
    std::string text = rectangle({{0, 0}, WIDTH, height_}, "ground");
    for (int i = 1; i < parts; ++i)
        text += formatted("<path class='grid' d='M%.1f 0V%.1f M0 %.1fH%.1f'/>\n", WIDTH * i / parts,
                          height_, height_ * i / parts, WIDTH);
    return text;
}

std::string Frame::outline(const MarkedShape &marked) const
{
    const Shape &shape = marked.shape;
    std::string path = "M";
    for (const va::Point &point : shape.points) {
        const Point at = place(point);
        path += formatted("%.1f %.1f ", at.x, at.y);
    }
    if (shape.kind != Shape::Kind::Line)
        path += 'Z';
    return formatted("<path class='%s%s' d='", look_of(marked).style, shape.used ? "" : " unused") +
           path + "'/>\n" + (shape.kind == Shape::Kind::Line ? arrows(marked) : "");
}

// To the sides to which a crossing alarms.
std::string Frame::arrows(const MarkedShape &line) const
{
    const Crossing crossing = line.shape.crossing;
    const char *colour = look_of(line).colour;
    std::string text;
    if (crossing == Crossing::ToRight || crossing == Crossing::Both)
        text += arrow_across(line.shape, 1, colour);
    if (crossing == Crossing::ToLeft || crossing == Crossing::Both)
        text += arrow_across(line.shape, -1, colour);
    return text;
}

std::string Frame::arrow_across(const Shape &line, double side, const char *colour) const
{
    constexpr double where = 0.42; // of the way, beside the tag
    constexpr double length = 26;
    const Point start = place(line.points[0]);
    const Point end = place(line.points[1]);
    const auto along = direction(start, end);
    if (!along)
        return "";
    const Point foot{start.x + (end.x - start.x) * where, start.y + (end.y - start.y) * where};
    return arrow(foot, {-along->y * side, along->x * side}, length, colour);
}

// Fainter towards its beginning, with a head at its end.
std::string Frame::trail(const Trail &trail) const
{
    constexpr double head = 18;
    constexpr double clear_way = 6; // by which the direction is told
    std::string text;
    const std::size_t count = trail.places.size();
    for (std::size_t i = 1; i < count; ++i) {
        const Point from = place(trail.places[i - 1]);
        const Point to = place(trail.places[i]);
        text += formatted("<path class='trail' opacity='%.2f' d='M%.1f %.1f L%.1f %.1f'/>\n",
                          static_cast<double>(i) / static_cast<double>(count), from.x, from.y, to.x,
                          to.y);
    }
    const Point end = place(trail.places.back());
    for (std::size_t i = count - 1; i-- > 0;) {
        const Point before = place(trail.places[i]);
        if (std::hypot(end.x - before.x, end.y - before.y) >= clear_way)
            return text + arrow(end, *direction(before, end), head, look_of(trail.kind).colour);
    }
    return text;
}

std::string Frame::box(const Detection &seen) const
{
    return formatted("<rect class='%s' x='%.1f' y='%.1f' width='%.1f' height='%.1f'%s/>\n",
                     look_of(seen.kind).style, seen.x * scale_, seen.y * scale_,
                     seen.width * scale_, seen.height * scale_,
                     seen.kind == Detection::Kind::Face ? " rx='18'" : "");
}

std::string Frame::tag(const MarkedShape &marked)
{
    const Shape &shape = marked.shape;
    std::string text =
        look_of(shape.kind).word + (' ' + std::to_string(shape.number)) + ": " + key_of(shape);
    if (marked.crossings > 0)
        text += ", crossed " + std::to_string(marked.crossings) + 'x';
    if (marked.lit)
        text += std::string(" ") + ALARM_LOOK.word;
    if (!shape.used)
        text += " (not used)";
    return tag_at(tags_.place(tag_corner(shape), text), text, look_of(marked).colour);
}

std::string Frame::tag(const Detection &seen)
{
    const Look &look = look_of(seen.kind);
    const std::string text = look.word + (' ' + std::to_string(seen.number));
    const Point above{seen.x * scale_, seen.y * scale_ - TAG_HEIGHT - 3};
    return tag_at(tags_.place(above, text), text, look.colour);
}

Point Frame::place(const va::Point &point) const
{
    constexpr double full_scale = 10000;
    return {point.x / full_scale * WIDTH, point.y / full_scale * height_};
}

// Shapes of different kinds often share an edge: their tags go to different corners.
Point Frame::tag_corner(const Shape &shape) const
{
    constexpr double gap = 4;
    const Point first = place(shape.points[0]); // top left, or a line's start
    const Point second = place(shape.points[1]);
    switch (shape.kind) {
    case Shape::Kind::Line: {
        const Point middle{(first.x + second.x) / 2, (first.y + second.y) / 2};
        return {middle.x + gap, middle.y - TAG_HEIGHT - gap};
    }
    case Shape::Kind::Area:
    case Shape::Kind::FaceDetection:
        return {first.x + gap, first.y + gap};
    case Shape::Kind::NonDetection:
    case Shape::Kind::DetectionWindow:
        return {first.x + gap, second.y - TAG_HEIGHT - gap};
    default:
        return {first.x + gap, (first.y + second.y - TAG_HEIGHT) / 2};
    }
}

} // namespace va::picture
