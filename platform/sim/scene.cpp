#include "platform/sim/scene.h"

#include "platform/sim/text.h"

#include <fstream>
#include <limits>
#include <sstream>
#include <string_view>

namespace
{

constexpr std::int64_t largest_coordinate = 65535; // pixels
constexpr std::int64_t longest_time = std::numeric_limits<std::int32_t>::max();

// What is left of a line. A value that is not there, or out of its range, fails the stream.

// A text that must come next, blanks before it aside.
struct Literal {
    std::string_view text;
};

std::istream &operator>>(std::istream &line, Literal literal)
{
    line >> std::ws;
    for (const char expected : literal.text) {
        if (line.get() != std::char_traits<char>::to_int_type(expected))
            line.setstate(std::ios::failbit);
    }
    return line;
}

std::int64_t number(std::istream &line, std::int64_t min, std::int64_t max)
{
    std::int64_t value = min;
    if (line >> value && (value < min || value > max))
        line.setstate(std::ios::failbit);
    return value;
}

// Decimal or, after 0x, hexadecimal; the low 32 bits count.
std::uint32_t word(std::istream &line)
{
    line.unsetf(std::ios::basefield);
    const std::int64_t value = number(line, std::numeric_limits<std::int32_t>::min(),
                                      std::numeric_limits<std::uint32_t>::max());
    line.setf(std::ios::dec, std::ios::basefield);
    return static_cast<std::uint32_t>(value);
}

std::int32_t coordinate(std::istream &line)
{
    return static_cast<std::int32_t>(number(line, -largest_coordinate, largest_coordinate));
}

std::int32_t extent(std::istream &line)
{
    return static_cast<std::int32_t>(number(line, 1, largest_coordinate));
}

Point point(std::istream &line)
{
    const std::int32_t x = coordinate(line);
    line >> Literal{","};
    return {x, coordinate(line)};
}

Size size(std::istream &line)
{
    const std::int32_t width = extent(line);
    line >> Literal{"x"};
    return {width, extent(line)};
}

std::int64_t duration(std::istream &line)
{
    return number(line, 1, longest_time);
}

Interval interval(std::istream &line)
{
    line >> Literal{"between"};
    const std::int64_t begin = number(line, 0, longest_time);
    return {begin, number(line, begin + 1, longest_time)};
}

SimObjectKind kind(std::istream &line)
{
    std::string name;
    line >> name;
    if (name == "static")
        return SimObjectKind::stationary;
    if (name != "dynamic")
        line.setstate(std::ios::failbit);
    return SimObjectKind::moving;
}

void add_alarm(std::istream &line, std::vector<ScriptedAlarm> &alarms, ScriptedAlarm alarm)
{
    line >> Literal{"ta"};
    for (std::uint32_t &value : alarm.words)
        value = word(line);
    alarms.push_back(alarm);
}

// One function a kind of line; it reads the rest of the line into the scene.

void read_frame(std::istream &line, Scene &scene)
{
    const std::int32_t width = extent(line);
    scene.frame = {width, extent(line)};
}

void read_period(std::istream &line, Scene &scene)
{
    scene.period = duration(line);
}

void read_od_interval(std::istream &line, Scene &scene)
{
    scene.od_interval = duration(line);
}

void read_every(std::istream &line, Scene &scene)
{
    const std::int64_t every = duration(line);
    add_alarm(line, scene.alarms, {every, every, {}});
}

void read_at(std::istream &line, Scene &scene)
{
    const std::int64_t first = number(line, 0, longest_time);
    add_alarm(line, scene.alarms, {first, 0, {}});
}

void read_object(std::istream &line, Scene &scene)
{
    ScriptedObject script;
    script.object.id = word(line);
    script.object.kind = kind(line);
    script.object.size = size(line);
    line >> Literal{"from"};
    script.object.centre = point(line);
    line >> Literal{"to"};
    script.to = point(line);
    script.shown = interval(line);
    scene.objects.push_back(script);
}

void read_face(std::istream &line, Scene &scene)
{
    ScriptedFace face;
    face.id = word(line);
    line >> Literal{"at"};
    face.corner = point(line);
    line >> Literal{"size"};
    face.size = size(line);
    face.shown = interval(line);
    scene.faces.push_back(face);
}

void read_fail(std::istream &line, Scene &scene)
{
    PlannedFailure failure;
    line >> failure.function;
    if (!failure.function.starts_with("ne3_"))
        line.setstate(std::ios::failbit);
    failure.nth = static_cast<int>(number(line, 1, std::numeric_limits<int>::max()));
    failure.error = static_cast<int>(word(line));
    scene.failures.push_back(failure);
}

struct LineKind {
    std::string_view keyword;
    void (*read)(std::istream &line, Scene &scene);
};

constexpr LineKind line_kinds[] = {
    {"frame", read_frame}, {"period", read_period}, {"od_interval", read_od_interval},
    {"every", read_every}, {"at", read_at},         {"object", read_object},
    {"face", read_face},   {"fail", read_fail},
};

// Leaves the scene as it was unless the whole line was understood.
bool read_line(const std::string &text, Scene &scene)
{
    std::istringstream line(text.substr(0, text.find('#')));
    std::string keyword;
    if (!(line >> keyword))
        return true;
    for (const LineKind &line_kind : line_kinds) {
        if (line_kind.keyword != keyword)
            continue;
        Scene changed = scene;
        line_kind.read(line, changed);
        if (line.fail() || !(line >> std::ws).eof())
            return false;
        scene = std::move(changed);
        return true;
    }
    return false;
}

} // namespace

std::optional<Scene> read_scene(const std::string &path, bool &clean)
{
    std::ifstream file(path);
    std::string text;
    Scene scene;
    clean = true;
    for (int number = 1; std::getline(file, text); ++number) {
        if (read_line(text, scene))
            continue;
        clean = false;
        say("%s:%d: not understood: %s", path.c_str(), number, text.c_str());
    }
    if (file.eof())
        return scene;
    say("%s: cannot be read", path.c_str());
    return {};
}
