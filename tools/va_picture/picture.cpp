#include "tools/va_picture/picture.h"

#include "tools/common/text.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace
{

// Everything is drawn in units of which the frame is this many wide, whatever its size in pixels,
// so that text and strokes have one size.
constexpr double frame_width = 1260;
constexpr double frame_margin = 10; // at both sides
constexpr double view_width = frame_width + 2 * frame_margin;
constexpr double header_height = 38;
constexpr double legend_row = 28;
constexpr int legend_columns = 6;
constexpr double tag_height = 20;
constexpr double full_scale = 10000;

struct Point {
    double x;
    double y;
};

// What a class of the style sheet stands for.
struct Look {
    const char *style; // its name
    const char *word;  // in tags
    const char *meaning;
    const char *colour;
};

// In the order of Shape::Kind, then of Sighting::Kind.
constexpr Look shape_looks[] = {
    {"nondet", "non-detection", "non-detection window", "#8d99a8"},
    {"det", "detection", "detection window", "#3fb950"},
    {"noalarm", "no-detection", "no-detection area", "#b08d57"},
    {"line", "line", "line", "#ff9f43"},
    {"area", "area", "area", "#a78bfa"},
    {"fwatch", "face watch", "face watch window", "#d16ba5"},
    {"fdet", "face detection", "face detection window", "#e05d8c"},
};
constexpr Look sighting_looks[] = {
    {"moving", "moving", "moving object", "#ffd93d"},
    {"static", "static", "static object", "#35d0e6"},
    {"face", "face", "face", "#ff9ecb"},
};
constexpr Look lit_look = {"lit", "", "alarm", "#ff3b30"};

const Look &look_of(const Shape &shape)
{
    return shape_looks[static_cast<std::size_t>(shape.kind)];
}

const Look &look_of(const Sighting &sighting)
{
    return sighting_looks[static_cast<std::size_t>(sighting.kind)];
}

constexpr char style_sheet[] =
    "<style>\n"
    "text{font-family:sans-serif;font-size:15px;fill:#e6edf3}\n"
    ".tag{font-size:14px;font-weight:bold;fill:#10151c}\n"
    ".badge{font-weight:bold;fill:#fff}\n"
    ".note{fill:#9aa7b4}\n"
    ".grid{stroke:#2a3644;stroke-width:1}\n"
    ".nondet{fill:url(#hatch);stroke:#8d99a8;stroke-width:2}\n"
    ".det{fill:none;stroke:#3fb950;stroke-width:2.5;stroke-dasharray:12 6}\n"
    ".noalarm{fill:url(#dots);stroke:#b08d57;stroke-width:2;stroke-dasharray:3 4}\n"
    ".line{fill:none;stroke:#ff9f43;stroke-width:4;stroke-linecap:round}\n"
    ".area{fill:#a78bfa;fill-opacity:.14;stroke:#a78bfa;stroke-width:2.5}\n"
    ".fwatch{fill:none;stroke:#d16ba5;stroke-width:2;stroke-dasharray:6 5}\n"
    ".fdet{fill:none;stroke:#e05d8c;stroke-width:2.5}\n"
    ".moving{fill:#ffd93d;fill-opacity:.18;stroke:#ffd93d;stroke-width:3}\n"
    ".static{fill:#35d0e6;fill-opacity:.18;stroke:#35d0e6;stroke-width:3}\n"
    ".face{fill:#ff9ecb;fill-opacity:.18;stroke:#ff9ecb;stroke-width:3}\n"
    ".lit{fill:#ff3b30;fill-opacity:.3;stroke:#ff3b30;stroke-width:6}\n"
    ".unused{opacity:.35}\n"
    "</style>\n"
    "<defs>\n"
    "<pattern id='hatch' width='12' height='12' patternUnits='userSpaceOnUse' "
    "patternTransform='rotate(45)'><rect width='12' height='12' fill='#0b0f14' "
    "fill-opacity='.55'/><path d='M0 0V12' stroke='#8d99a8' stroke-width='3' "
    "stroke-opacity='.55'/></pattern>\n"
    "<pattern id='dots' width='14' height='14' patternUnits='userSpaceOnUse'>"
    "<circle cx='4' cy='4' r='2' fill='#b08d57' fill-opacity='.8'/></pattern>\n"
    "</defs>\n";

std::string text_at(Point at, const char *style, const std::string &text, const char *anchor)
{
    return formatted("<text x='%.1f' y='%.1f' class='%s' text-anchor='%s'>", at.x, at.y, style,
                     anchor) +
           text + "</text>\n";
}

// A label on a coloured ground.
std::string tag_at(Point corner, const std::string &text, const char *colour)
{
    constexpr double letter = 8.8;
    constexpr double margin = 6;
    constexpr double baseline = 15;
    return formatted("<rect x='%.1f' y='%.1f' width='%.1f' height='%.1f' rx='3' fill='%s'/>\n",
                     corner.x, corner.y, letter * static_cast<double>(text.size()) + 2 * margin,
                     tag_height, colour) +
           text_at({corner.x + margin, corner.y + baseline}, "tag", text, "start");
}

// Draws into the frame, whose top left corner is the origin.
class Frame
{
public:
    explicit Frame(const Picture &picture)
        : picture_(picture),
          scale_(frame_width / picture.frame.width),
          height_(picture.frame.height * scale_)
    {
    }

    double height() const { return height_; }

    std::string ground() const
    {
        constexpr int parts = 10;
        std::string text =
            formatted("<rect width='%.1f' height='%.1f' fill='#18212c'/>\n", frame_width, height_);
        for (int i = 1; i < parts; ++i)
            text += formatted("<path class='grid' d='M%.1f 0V%.1f M0 %.1fH%.1f'/>\n",
                              frame_width * i / parts, height_, height_ * i / parts, frame_width);
        return text;
    }

    std::string shape(const Shape &shape) const
    {
        const bool lit = is_lit(shape);
        std::string path = "M";
        for (const ConfPoint &point : shape.points) {
            const Point at = place(point);
            path += formatted("%.1f %.1f ", at.x, at.y);
        }
        if (shape.kind != Shape::Kind::Line)
            path += 'Z';
        return formatted("<path class='%s%s' d='", lit ? lit_look.style : look_of(shape).style,
                         shape.used ? "" : " unused") +
               path + "'/>\n" + (shape.kind == Shape::Kind::Line ? arrows(shape, lit) : "");
    }

    std::string shape_tag(const Shape &shape) const
    {
        const bool lit = is_lit(shape);
        std::string text = look_of(shape).word + (' ' + std::to_string(shape.number));
        if (lit)
            text += " ALARM";
        if (!shape.used)
            text += " (not used)";
        return tag_at(inside(tag_corner(shape), text), text,
                      lit ? lit_look.colour : look_of(shape).colour);
    }

    std::string box(const Sighting &seen) const
    {
        return formatted("<rect class='%s' x='%.1f' y='%.1f' width='%.1f' height='%.1f'%s/>\n",
                         look_of(seen).style, seen.x * scale_, seen.y * scale_, seen.width * scale_,
                         seen.height * scale_, seen.kind == Sighting::Kind::Face ? " rx='18'" : "");
    }

    std::string box_tag(const Sighting &seen) const
    {
        const std::string text = look_of(seen).word + (' ' + std::to_string(seen.number));
        const Point above{seen.x * scale_, seen.y * scale_ - tag_height - 3};
        return tag_at(inside(above, text), text, look_of(seen).colour);
    }

private:
    Point place(const ConfPoint &point) const
    {
        return {point.x / full_scale * frame_width, point.y / full_scale * height_};
    }

    bool is_lit(const Shape &shape) const
    {
        const bool alarms = shape.kind == Shape::Kind::Line || shape.kind == Shape::Kind::Area;
        return alarms && shape.used && picture_.alarms.alarms[shape.event] >> shape.bit & 1;
    }

    // Shapes of different kinds often share an edge: their tags go to different corners.
    Point tag_corner(const Shape &shape) const
    {
        constexpr double gap = 4;
        const Point first = place(shape.points[0]); // top left, or a line's start
        const Point second = place(shape.points[1]);
        switch (shape.kind) {
        case Shape::Kind::Line: {
            const Point middle{(first.x + second.x) / 2, (first.y + second.y) / 2};
            return {middle.x + gap, middle.y - tag_height - gap};
        }
        case Shape::Kind::Area:
        case Shape::Kind::FaceDetection:
            return {first.x + gap, first.y + gap};
        case Shape::Kind::NonDetection:
        case Shape::Kind::Detection:
            return {first.x + gap, second.y - tag_height - gap};
        default:
            return {first.x + gap, (first.y + second.y - tag_height) / 2};
        }
    }

    // The corner, moved so that the tag lies in the frame.
    Point inside(Point corner, const std::string &text) const
    {
        const double width = 10.0 * static_cast<double>(text.size());
        return {std::clamp(corner.x, 2.0, std::max(frame_width - width, 2.0)),
                std::clamp(corner.y, 2.0, std::max(height_ - tag_height - 2, 2.0))};
    }

    // To the sides to which a crossing alarms.
    std::string arrows(const Shape &line, bool lit) const
    {
        const Crossing crossing = crossing_of(line.direction);
        std::string text;
        if (crossing == Crossing::ToRight || crossing == Crossing::Both)
            text += arrow(line, 1, lit);
        if (crossing == Crossing::ToLeft || crossing == Crossing::Both)
            text += arrow(line, -1, lit);
        return text;
    }

    std::string arrow(const Shape &line, double side, bool lit) const
    {
        constexpr double where = 0.42; // of the way, beside the tag
        constexpr double length = 26;
        constexpr double half_width = 9;
        const Point start = place(line.points[0]);
        const Point end = place(line.points[1]);
        const double distance = std::hypot(end.x - start.x, end.y - start.y);
        if (distance < 1)
            return "";
        const Point along{(end.x - start.x) / distance, (end.y - start.y) / distance};
        const Point across{-along.y * side, along.x * side}; // y runs downwards
        const Point foot{start.x + (end.x - start.x) * where, start.y + (end.y - start.y) * where};
        return formatted("<path fill='%s' d='M%.1f %.1f L%.1f %.1f L%.1f %.1f Z'/>\n",
                         lit ? lit_look.colour : look_of(line).colour,
                         foot.x + along.x * half_width, foot.y + along.y * half_width,
                         foot.x + across.x * length, foot.y + across.y * length,
                         foot.x - along.x * half_width, foot.y - along.y * half_width);
    }

    const Picture &picture_;
    double scale_; // units in a pixel
    double height_;
};

std::string legend_entry(const Look &look, int index)
{
    constexpr double swatch = 26;
    const double x = frame_margin + frame_width / legend_columns * (index % legend_columns);
    const int row = index / legend_columns;
    const double y = 2 + legend_row * row;
    return formatted("<rect class='%s' x='%.1f' y='%.1f' width='%.1f' height='16'/>\n", look.style,
                     x, y, swatch) +
           text_at({x + swatch + 8, y + 14}, "note", look.meaning, "start");
}

std::string legend()
{
    std::string text;
    int index = 0;
    for (const Look &look : shape_looks)
        text += legend_entry(look, index++);
    for (const Look &look : sighting_looks)
        text += legend_entry(look, index++);
    return text + legend_entry(lit_look, index);
}

std::string header(const Picture &picture)
{
    constexpr double baseline = 24;
    std::string text = text_at({frame_margin, baseline}, "", picture.caption, "start") +
                       text_at({view_width - frame_margin, baseline}, "", picture.clock, "end");
    if (picture.tamper)
        text += "<rect x='590' y='6' width='100' height='24' rx='4' fill='#ff3b30'/>\n" +
                text_at({view_width / 2, 23}, "badge", "TAMPER", "middle");
    return text;
}

// Around the frame.
std::string tamper_frame(const Picture &picture, const Frame &frame)
{
    constexpr double width = 5;
    if (!picture.tamper)
        return "";
    return formatted("<rect x='%.1f' y='%.1f' width='%.1f' height='%.1f' fill='#ff3b30'/>\n",
                     frame_margin - width, header_height - width, frame_width + 2 * width,
                     frame.height() + 2 * width);
}

std::string frame_content(const Picture &picture, const Frame &frame)
{
    std::string text = frame.ground();
    for (const Shape &shape : picture.shapes)
        text += frame.shape(shape);
    for (const Sighting &seen : picture.sightings)
        text += frame.box(seen);
    for (const Shape &shape : picture.shapes)
        text += frame.shape_tag(shape);
    for (const Sighting &seen : picture.sightings)
        text += frame.box_tag(seen);
    return text;
}

} // namespace

std::string svg_text(const Picture &picture)
{
    const Frame frame(picture);
    constexpr double legend_rows = 2;
    const double legend_top = header_height + frame.height() + frame_margin;
    const double height = legend_top + legend_rows * legend_row + frame_margin;
    return formatted("<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 %.0f %.0f'>\n",
                     view_width, height) +
           "<title>va</title>\n" + style_sheet +
           formatted("<rect width='%.0f' height='%.0f' fill='#10151c'/>\n", view_width, height) +
           header(picture) + tamper_frame(picture, frame) +
           formatted("<svg x='%.0f' y='%.0f' width='%.0f' height='%.1f'>\n", frame_margin,
                     header_height, frame_width, frame.height()) +
           frame_content(picture, frame) + "</svg>\n" +
           formatted("<g transform='translate(0 %.1f)'>\n", legend_top) + legend() + "</g>\n" +
           "<script>setTimeout(function(){location.reload()},500)</script>\n</svg>\n";
}
