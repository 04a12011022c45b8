#include "tools/va_picture/svg.h"

#include "util/text.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace va::picture
{

namespace
{

constexpr double tag_margin = 6;

std::string escaped(const std::string &text)
{
    std::string safe;
    for (const char letter : text) {
        if (letter == '&')
            safe += "&amp;";
        else if (letter == '<')
            safe += "&lt;";
        else
            safe += letter;
    }
    return safe;
}

std::string base64(std::string_view bytes)
{
    constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(bytes.size(), 3))) {
        std::uint32_t three = 0;
        for (std::size_t i = 0; i < 3; ++i)
            three = three << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0);
        for (std::size_t i = 0; i < 4; ++i)
            text += i <= bytes.size() ? digits[three >> (18 - 6 * i) & 63] : '=';
    }
    return text;
}

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
           escaped(text) + "</text>\n";
}

std::string jpeg_at(const Rectangle &place, const std::string &jpeg)
{
    return formatted("<image x='%.1f' y='%.1f' width='%.1f' height='%.1f' "
                     "preserveAspectRatio='none' href='data:image/jpeg;base64,",
                     place.corner.x, place.corner.y, place.width, place.height) +
           base64(jpeg) + "'/>\n";
}

std::string rectangle(const Rectangle &place, const char *style)
{
    return formatted("<rect class='%s' x='%.1f' y='%.1f' width='%.1f' height='%.1f'/>\n", style,
                     place.corner.x, place.corner.y, place.width, place.height);
}

double tag_width(const std::string &text)
{
    constexpr double letter = 9; // of a wide sans-serif, bold
    return letter * static_cast<double>(text.size()) + 2 * tag_margin;
}

std::string tag_at(Point corner, const std::string &text, const char *colour)
{
    constexpr double baseline = 15;
    return formatted("<rect x='%.1f' y='%.1f' width='%.1f' height='%.1f' rx='3' fill='%s'/>\n",
                     corner.x, corner.y, tag_width(text), TAG_HEIGHT, colour) +
           text_at({corner.x + tag_margin, corner.y + baseline}, "tag", text);
}

} // namespace va::picture
