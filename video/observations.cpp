#include "video/observations.h"

#include <cmath>

namespace
{

// As the entries of results have them.
constexpr int kind_moving = 3;
constexpr int kind_standing = 19;

void add(std::string &line, long long number)
{
    line += ' ' + std::to_string(number);
}

void add(std::string &line, const Box &box)
{
    const long long left = std::lround(box.x);
    const long long top = std::lround(box.y);
    add(line, left);
    add(line, top);
    add(line, std::max(std::llround(box.right()) - left, 1LL));
    add(line, std::max(std::llround(box.bottom()) - top, 1LL));
    line += '\n';
}

} // namespace

std::string frame_line(FrameSize frame)
{
    std::string line = "frame";
    add(line, frame.width);
    add(line, frame.height);
    return line + '\n';
}

std::string lines_of(const Observations &observations)
{
    std::string lines;
    if (observations.jump)
        lines += "jump\n";
    if (observations.tamper) {
        lines += "ta 1";
        add(lines, *observations.tamper);
        lines += " 0 0\n";
    }
    for (const Tracked &object : observations.objects) {
        lines += "object";
        add(lines, object.id);
        add(lines, object.standing ? kind_standing : kind_moving);
        add(lines, object.box);
    }
    for (const Tracked &face : observations.faces) {
        lines += "face";
        add(lines, face.id);
        add(lines, face.box);
    }
    lines += "picture";
    add(lines, picture_number(observations.time));
    return lines + '\n';
}
