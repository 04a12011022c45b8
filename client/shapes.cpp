#include "client/shapes.h"

#include "records/records.h"
#include "util/text.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include <strings.h>

namespace va
{

namespace
{

using Kind = Shape::Kind;

const char *key_beginning(Kind kind)
{
    switch (kind) {
    case Kind::NonDetection:
        return "VMDWindow.NonDetect.V";
    case Kind::DetectionWindow:
        return "VMDWindow.Detect.V";
    case Kind::NoAlarm:
        return "VideoAnalytics.OD.VmfParam.NdArea";
    case Kind::Line:
        return "CrossLine.C";
    case Kind::Area:
        return "ObjectDetection.O";
    case Kind::FaceWatch:
    case Kind::FaceDetection:
        return "FaceDetection.F";
    }
    return "";
}

Kind kind_of(AlarmRule::Source source)
{
    return source == AlarmRule::Source::Line ? Kind::Line : Kind::Area;
}

// The settings of one window, line or area.
class Settings
{
public:
    // `section` is "setting." or "left_out.", of which a value has the reason behind it.
    Settings(const DaemonStatus &status, const char *section, std::string key)
        : status_(status), beginning_(section + std::move(key) + '.')
    {
    }

    std::string_view text(const char *name) const { return status_.value(beginning_ + name); }

    // As the daemon reads numbers; -1, which is no place, when there is none.
    std::int32_t number(const char *name) const
    {
        const std::string_view value = text(name);
        return value.empty() ? -1
                             : static_cast<std::int32_t>(std::strtol(value.data(), nullptr, 10));
    }

private:
    const DaemonStatus &status_;
    std::string beginning_;
};

// Of no-detection areas one more than of everything else.
bool is_place(Kind kind, Point point)
{
    const std::int32_t max = kind == Kind::NoAlarm ? 10000 : 9999;
    return point.x >= 0 && point.x <= max && point.y >= 0 && point.y <= max;
}

// Empty when the settings make no such shape.
std::vector<Point> points_of(Kind kind, const Settings &settings)
{
    if (kind == Kind::Line) {
        const Point start{settings.number("StartX"), settings.number("StartY")};
        const Point end{settings.number("EndX"), settings.number("EndY")};
        return is_place(kind, start) && is_place(kind, end) ? std::vector{start, end}
                                                            : std::vector<Point>();
    }
    // In whichever order the edges stand.
    const auto [left, right] = std::minmax({settings.number("Left"), settings.number("Right")});
    const auto [top, bottom] = std::minmax({settings.number("Top"), settings.number("Bottom")});
    if (!is_place(kind, {left, top}) || !is_place(kind, {right, bottom}) || left == right ||
        top == bottom)
        return {};
    return {{left, top}, {left, bottom}, {right, bottom}, {right, top}};
}

bool is_detection_window(std::string_view type)
{
    constexpr std::string_view word = "detected";
    return type.size() >= word.size() && strncasecmp(type.data(), word.data(), word.size()) == 0;
}

void add(Scene &scene, const DaemonStatus &status, Kind kind, const char *section)
{
    const std::string beginning = key_beginning(kind);
    for (const std::string &name : status.names_below(section + beginning)) {
        const auto number = number_in<int>(name);
        if (!number)
            continue;
        const Settings settings(status, section, beginning + name);
        Shape shape{kind, *number, points_of(kind, settings)};
        if (kind == Kind::FaceWatch && is_detection_window(settings.text("WindowType")))
            shape.kind = Kind::FaceDetection;
        if (kind == Kind::Line) {
            shape.setting = settings.number("Direction");
            shape.crossing = crossing_of(shape.setting);
        } else if (kind == Kind::Area) {
            shape.setting = settings.number("Type");
        }
        shape.used = std::string_view(section) == "setting.";
        if (!shape.points.empty())
            scene.shapes.push_back(std::move(shape));
    }
}

bool is_on(const DaemonStatus &status, const char *module)
{
    const std::string_view state = status.value(std::string("module.") + module + ".state");
    return !state.empty() && state != "off";
}

void add_shapes(Scene &scene, const DaemonStatus &status)
{
    // A face window's kind is a setting of its own: both are among the first of the two.
    constexpr struct {
        const char *module;
        Kind kind;
    } rows[] = {{"od", Kind::NonDetection}, {"od", Kind::DetectionWindow},
                {"od", Kind::NoAlarm},      {"fd", Kind::FaceWatch},
                {"od", Kind::Line},         {"od", Kind::Area}};
    for (const auto &[module, kind] : rows) {
        for (const char *const section : {"setting.", "left_out."}) {
            if (is_on(status, module))
                add(scene, status, kind, section);
        }
    }
}

// Nothing when it is not understood: a daemon of another version.
std::optional<AlarmRule> rule_named(std::string_view name, int event, int bit)
{
    for (const auto source : {AlarmRule::Source::Line, AlarmRule::Source::Area}) {
        const std::string_view beginning = key_beginning(kind_of(source));
        if (!name.starts_with(beginning))
            continue;
        if (const auto number = number_in<int>(name.substr(beginning.size())))
            return AlarmRule{source, event, bit, number};
    }
    return std::nullopt;
}

constexpr int event_codes = VMF_EVENT_CODES;
constexpr int mask_bits = 32;

void add_rules(Scene &scene, const DaemonStatus &status)
{
    for (const std::string &filter : status.names_below("filter.")) {
        const std::string key = "filter." + filter;
        const auto event = number_in<int>(status.value(key + ".event"));
        const auto bit = number_in<int>(status.value(key + ".bit"));
        if (!event || *event < 0 || *event >= event_codes || !bit || *bit < 0 || *bit >= mask_bits)
            continue; // of another version
        if (const auto rule = rule_named(status.value(key + ".name"), *event, *bit))
            scene.rules.push_back(*rule);
    }
}

// "imx122 1920x1080 30/s"
std::optional<Size> frame_in(std::string_view sensor)
{
    sensor = sensor.substr(0, sensor.rfind(' '));
    sensor.remove_prefix(std::min(sensor.size(), sensor.rfind(' ') + 1));
    const std::size_t cross = std::min(sensor.find('x'), sensor.size());
    const int width = number_in<int>(sensor.substr(0, cross)).value_or(0);
    const int height =
        number_in<int>(sensor.substr(std::min(cross + 1, sensor.size()))).value_or(0);
    if (width <= 0 || height <= 0)
        return std::nullopt;
    return Size{width, height};
}

} // namespace

AlarmRule rule_among(const std::vector<AlarmRule> &known, Alarm alarm)
{
    constexpr int line_code = 1; // event code of lines; the others are of areas
    const auto found = std::ranges::find_if(known, [=](const AlarmRule &rule) {
        return rule.event == alarm.event && rule.bit == alarm.bit;
    });
    if (found != known.end())
        return *found;
    using enum AlarmRule::Source;
    return {alarm.event == line_code ? Line : Area, alarm.event, alarm.bit, {}};
}

std::string name_of(const AlarmRule &rule)
{
    if (!rule.number)
        return "event " + std::to_string(rule.event) + " bit " + std::to_string(rule.bit);
    return key_beginning(kind_of(rule.source)) + std::to_string(*rule.number);
}

std::string key_of(const Shape &shape)
{
    return key_beginning(shape.kind) + std::to_string(shape.number);
}

const Shape *Scene::shape_of(const AlarmRule &rule) const
{
    const auto found = std::ranges::find_if(shapes, [&](const Shape &shape) {
        return shape.used && shape.kind == kind_of(rule.source) && shape.number == rule.number;
    });
    return found == shapes.end() ? nullptr : &*found;
}

std::optional<Scene> scene_of(const DaemonStatus &status)
{
    const auto frame = frame_in(status.value("va.sensor"));
    if (status.answer != DaemonStatus::Answer::Answered || !frame)
        return std::nullopt;
    Scene scene{*frame, {}, {}};
    add_shapes(scene, status);
    add_rules(scene, status);
    return scene;
}

} // namespace va
