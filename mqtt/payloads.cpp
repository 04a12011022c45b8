#include "mqtt/payloads.h"

#include "tools/common/text.h"

#include <nlohmann/json.hpp>

namespace
{

using Json = nlohmann::ordered_json;

// By Sighting::Kind, Shape::Kind and Crossing.
constexpr const char *class_names[] = {"Moving", "Static", "Face"};
constexpr const char *shape_names[] = {"non-detection", "detection",  "no-detection",  "line",
                                       "area",          "face watch", "face detection"};
constexpr const char *crossing_names[] = {"unknown", "to left", "to right", "both"};

// Texts come from options, which were checked, so that nothing here can fail.
std::string text_of(const Json &json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

const char *class_of(const Sighting &seen)
{
    return class_names[static_cast<std::size_t>(seen.kind)];
}

Json box_of(const Sighting &seen)
{
    const std::int64_t left = seen.x; // wide enough for the sums of what the chip may send
    const std::int64_t top = seen.y;
    return {{"@left", left},
            {"@top", top},
            {"@right", left + seen.width},
            {"@bottom", top + seen.height}};
}

Json object_of(const Sighting &seen)
{
    const Json centre = {{"@x", seen.x + seen.width / 2.0}, {"@y", seen.y + seen.height / 2.0}};
    const Json shape = {{"BoundingBox", box_of(seen)}, {"CenterOfGravity", centre}};
    const Json type = {{"Type", class_of(seen)}};
    const Json appearance = {{"Shape", shape}, {"Class", type}};
    return {{"@ObjectId", seen.number}, {"Appearance", appearance}};
}

Json transformation_of(ConfSize frame)
{
    const Json translate = {{"@x", -1}, {"@y", 1}};
    const Json scale = {{"@x", 2.0 / frame.width}, {"@y", -2.0 / frame.height}};
    return {{"Translate", translate}, {"Scale", scale}};
}

template <class Items, class Item>
Json list_of(const Items &items, Item item)
{
    Json list = Json::array();
    for (const auto &each : items)
        list.push_back(item(each));
    return list;
}

std::string event_text(SystemTime time, const Json &source, const Json &data)
{
    return text_of({{"UtcTime", utc_text(time)}, {"Source", source}, {"Data", data}});
}

Json rule_source(const AlarmRule &rule, const Settings &settings)
{
    return {{"VideoSource", settings.video_source},
            {"AnalyticsConfiguration", settings.analytics},
            {"Rule", name_of(rule)}};
}

Json place_of(const Sighting &seen, SystemTime time)
{
    return {{"UtcTime", utc_text(time)}, {"BoundingBox", box_of(seen)}};
}

Json shape_of(const Shape &shape)
{
    const bool is_line = shape.kind == Shape::Kind::Line;
    Json json = {{"Kind", shape_names[static_cast<std::size_t>(shape.kind)]},
                 {"Number", shape.number}};
    if (is_line || shape.kind == Shape::Kind::Area)
        json["Rule"] = name_of(rule_of(shape));
    if (is_line)
        json["Crossing"] = crossing_names[static_cast<std::size_t>(crossing_of(shape.direction))];
    json["Used"] = shape.used;
    json["Points"] = list_of(shape.points, [](const ConfPoint &point) {
        return Json::array({point.x, point.y});
    });
    return json;
}

} // namespace

AlarmRule rule_of(const Shape &shape)
{
    return {shape.kind == Shape::Kind::Line ? AlarmRule::Source::Line : AlarmRule::Source::Area,
            shape.event, shape.bit, shape.number};
}

std::string frame_payload(std::span<const Sighting> sightings, SystemTime time, ConfSize frame,
                          const Settings &settings)
{
    const Json one = {{"@UtcTime", utc_text(time)},
                      {"@Source", settings.video_source},
                      {"Transformation", transformation_of(frame)},
                      {"Object", list_of(sightings, object_of)}};
    return text_of({{"Frame", Json::array({one})}});
}

std::string line_payload(const AlarmRule &rule, SystemTime time, const Settings &settings)
{
    return event_text(time, rule_source(rule, settings), Json::object());
}

std::string area_payload(const AlarmRule &rule, bool inside, SystemTime time,
                         const Settings &settings)
{
    return event_text(time, rule_source(rule, settings), {{"IsInside", inside}});
}

std::string tamper_payload(bool tampered, SystemTime time, const Settings &settings)
{
    return event_text(time, {{"Source", settings.video_source}}, {{"State", tampered}});
}

std::string track_payload(const Event &event, SystemTime first, SystemTime last)
{
    const bool ended = event.kind == Event::Kind::ObjectLeft;
    Json json = {{"State", ended ? "Ended" : "Began"},
                 {"ObjectId", event.from.number},
                 {"Class", class_of(event.from)},
                 {"First", place_of(event.from, first)}};
    if (ended) {
        json["Last"] = place_of(event.to, last);
        json["Seconds"] = std::chrono::duration<double>(event.last - event.first).count();
        json["CutOff"] = event.cut_off;
    }
    return text_of(json);
}

std::string scene_payload(ConfSize frame, std::span<const Shape> shapes)
{
    const Json size = {{"Width", frame.width}, {"Height", frame.height}};
    return text_of({{"Frame", size}, {"Shapes", list_of(shapes, shape_of)}});
}

std::string losses_payload(const Losses &losses, SystemTime time)
{
    return text_of({{"UtcTime", utc_text(time)},
                    {"Frames", losses.frames},
                    {"Events", losses.events},
                    {"Results", losses.results}});
}
