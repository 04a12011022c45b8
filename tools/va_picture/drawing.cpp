#include "tools/va_picture/drawing.h"

#include "tools/va_picture/frame.h"
#include "tools/va_picture/look.h"
#include "util/text.h"

#include <algorithm>
#include <cinttypes>

namespace va::picture
{

namespace
{

// Lengths are units of which Frame::WIDTH make the frame's width.
constexpr double margin = 10;
constexpr double view_width = Frame::WIDTH + 2 * margin;
constexpr double header_height = 38;
constexpr double baseline = 24;
constexpr double legend_row = 28;
constexpr std::size_t legend_columns = 6;
constexpr double event_row = 22;
constexpr std::size_t event_columns = 2;
constexpr int aged_after_ms = 3000;

// Of Picture::State.
constexpr const char *state_colours[] = {"#3fb950", "#ff3b30", "#ff9f43",
                                         "#ff3b30", "#ff9f43", "#35d0e6"};

bool is_past(Picture::State state)
{
    return state != Picture::State::Live && state != Picture::State::Capture;
}

std::string header(const Picture &picture)
{
    constexpr double radius = 7;
    constexpr double text_left = margin + 2 * radius + 8;
    constexpr double caption_left = 340;
    return formatted("<circle class='state' cx='%.0f' cy='19' r='%.0f' fill='%s'/>\n",
                     margin + radius, radius,
                     state_colours[static_cast<std::size_t>(picture.state)]) +
           text_at({text_left, baseline}, "state", picture.state_text) +
           text_at({text_left, baseline}, "old", "not drawn since " + picture.clock) +
           text_at({caption_left, baseline}, "note", picture.caption) +
           text_at({view_width - margin, baseline}, "", picture.clock, "end");
}

// A badge, and a frame around the frame.
std::string tamper_alarm(double frame_height)
{
    constexpr double width = 5;
    constexpr Rectangle badge{{960, 7}, 100, 24};
    return rectangle({{margin - width, header_height - width},
                      Frame::WIDTH + 2 * width,
                      frame_height + 2 * width},
                     "alarm") +
           rectangle(badge, "alarm") +
           text_at({badge.corner.x + badge.width / 2, baseline}, "badge", "TAMPER", "middle");
}

// What is configured, each once and in the order of drawing, and what may be seen.
std::vector<const Look *> legend_looks(const Picture &picture)
{
    std::vector<const Look *> looks;
    for (const MarkedShape &marked : picture.shapes) {
        const Look *look = &look_of(marked.shape.kind);
        if (std::ranges::find(looks, look) == looks.end())
            looks.push_back(look);
    }
    if (picture.has_objects) {
        looks.push_back(&look_of(Detection::Kind::Moving));
        looks.push_back(&look_of(Detection::Kind::Static));
    }
    if (picture.has_faces)
        looks.push_back(&look_of(Detection::Kind::Face));
    looks.push_back(&ALARM_LOOK);
    return looks;
}

// The place of an item in a table that begins at `top`.
Point cell(std::size_t column, std::size_t columns, std::size_t row, double row_height, double top)
{
    return {margin + Frame::WIDTH / static_cast<double>(columns) * static_cast<double>(column),
            top + row_height * static_cast<double>(row)};
}

std::string legend(const std::vector<const Look *> &looks, double top)
{
    constexpr double swatch = 26;
    std::string text;
    for (std::size_t i = 0; i < looks.size(); ++i) {
        const Point at =
            cell(i % legend_columns, legend_columns, i / legend_columns, legend_row, top);
        text += rectangle({at, swatch, 16}, looks[i]->style) +
                text_at({at.x + swatch + 8, at.y + 14}, "note", looks[i]->meaning);
    }
    return text;
}

std::size_t rows(std::size_t items, std::size_t columns)
{
    return (items + columns - 1) / columns;
}

// Column by column, the newest first.
std::string events(const std::vector<std::string> &lines, double top)
{
    constexpr std::size_t column_rows = PICTURE_EVENTS / event_columns;
    std::string text;
    for (std::size_t i = 0; i < std::min(lines.size(), PICTURE_EVENTS); ++i) {
        const Point at = cell(i / column_rows, event_columns, i % column_rows, event_row, top);
        text += text_at({at.x, at.y + 14}, i == 0 ? "" : "note", lines[i]);
    }
    return text;
}

// Run where the drawing is shown by itself.
std::string aging_script(const Picture &picture)
{
    return formatted("<script>setTimeout(function(){document.documentElement.classList.add('aged')}"
                     ",%" PRId64 "+%d-Date.now())</script>\n",
                     picture.drawn, aged_after_ms);
}

} // namespace

std::string svg_text(const Picture &picture)
{
    Frame frame(picture);
    const std::vector<const Look *> looks = legend_looks(picture);
    const double legend_top = header_height + frame.height() + margin + 2;
    const double events_top =
        legend_top + legend_row * static_cast<double>(rows(looks.size(), legend_columns));
    const double height = events_top + event_row * PICTURE_EVENTS / event_columns + margin;
    return formatted("<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 %.0f %.0f'%s>\n",
                     view_width, height, is_past(picture.state) ? " class='gone'" : "") +
           "<title>va</title>\n" + STYLE_SHEET +
           formatted("<rect width='%.0f' height='%.0f' fill='#10151c'/>\n", view_width, height) +
           header(picture) + "<g class='scene'>\n" +
           (picture.tamper ? tamper_alarm(frame.height()) : "") +
           formatted("<svg x='%.0f' y='%.0f' width='%.0f' height='%.1f'>\n", margin, header_height,
                     Frame::WIDTH, frame.height()) +
           frame.drawing() + "</svg>\n" + legend(looks, legend_top) + "</g>\n" +
           events(picture.events, events_top) + aging_script(picture) + "</svg>\n";
}

} // namespace va::picture
