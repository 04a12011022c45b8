#include "tools/common/messages.h"

#include "tools/common/printing.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

#include <unistd.h>

namespace va
{

namespace
{

const char *class_of(Detection::Kind kind)
{
    switch (kind) {
    case Detection::Kind::Moving:
        return "Moving";
    case Detection::Kind::Static:
        return "Static";
    case Detection::Kind::Face:
        return "HumanFace";
    }
    return "";
}

const char *shape_name(Shape::Kind kind)
{
    switch (kind) {
    case Shape::Kind::NonDetection:
        return "non-detection";
    case Shape::Kind::DetectionWindow:
        return "detection";
    case Shape::Kind::NoAlarm:
        return "no-detection";
    case Shape::Kind::Line:
        return "line";
    case Shape::Kind::Area:
        return "area";
    case Shape::Kind::FaceWatch:
        return "face watch";
    case Shape::Kind::FaceDetection:
        return "face detection";
    }
    return "";
}

const char *crossing_name(Crossing crossing)
{
    switch (crossing) {
    case Crossing::Unknown:
        return "unknown";
    case Crossing::ToLeft:
        return "to left";
    case Crossing::ToRight:
        return "to right";
    case Crossing::Both:
        return "both";
    }
    return "";
}

// A rule in topics and payloads. Brokers that map topics to names of their own take neither "." nor
// " " in them.
std::string plain_name(std::string name)
{
    std::ranges::replace_if(
        name, [](char c) { return c == '.' || c == ' '; }, '-');
    return name;
}

// A value as one level of a topic, without what has a meaning there.
std::string level(std::string value)
{
    std::erase_if(value, [](char c) { return c == '#' || c == '+' || c == '/'; });
    return value;
}

Json box_of(const Detection &seen)
{
    const std::int64_t left = seen.x; // wide enough for the sums of what the chip may send
    const std::int64_t top = seen.y;
    return {{"@left", left},
            {"@top", top},
            {"@right", left + seen.width},
            {"@bottom", top + seen.height}};
}

// An element that may repeat is an array, and a text without attributes stands for itself.
Json types_of(const Detection &seen)
{
    const Json word = class_of(seen.kind);
    if (!seen.score)
        return Json::array({word});
    return Json::array({Json{{"@Likelihood", *seen.score}, {"#text", word}}});
}

Json object_of(const ObjectFrame::Object &object)
{
    const Detection &seen = object.seen;
    const Json centre = {{"@x", seen.centre_x}, {"@y", seen.centre_y}};
    const Json shape = {{"BoundingBox", box_of(seen)}, {"CenterOfGravity", centre}};
    const Json types = {{"Type", types_of(seen)}};
    const Json appearance = {{"Shape", shape}, {"Class", types}};
    return {{"@ObjectId", object.id}, {"Appearance", appearance}};
}

Json transformation_of(Size frame)
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

Json rule_source(const AlarmRule &rule, const CameraNames &names)
{
    return {{"VideoSource", names.video_source},
            {"AnalyticsConfiguration", names.analytics},
            {"Rule", plain_name(name_of(rule))}};
}

Json place_of(const Detection &seen, SystemTime time)
{
    return {{"UtcTime", utc_text(time)}, {"BoundingBox", box_of(seen)}};
}

Json shape_of(const Shape &shape)
{
    const bool is_line = shape.kind == Shape::Kind::Line;
    Json json = {{"Kind", shape_name(shape.kind)}, {"Number", shape.number}};
    if (is_line || shape.kind == Shape::Kind::Area)
        json["Rule"] = plain_name(key_of(shape));
    if (is_line) {
        json["Crossing"] = crossing_name(shape.crossing);
        json["Direction"] = shape.setting;
    } else if (shape.kind == Shape::Kind::Area) {
        json["Type"] = shape.setting;
    }
    json["Used"] = shape.used;
    json["Points"] = list_of(shape.points, [](const Point &point) {
        return Json::array({point.x, point.y});
    });
    return json;
}

// By the words of "Crossing".
Json known_directions()
{
    Json directions = Json::object();
    for (const Crossing crossing : {Crossing::ToLeft, Crossing::ToRight, Crossing::Both}) {
        if (const auto direction = direction_of(crossing))
            directions[crossing_name(crossing)] = *direction;
    }
    return directions;
}

// Adds who took part: the first of them and the classes as ONVIF has it, and all.
void add_objects(Json &data, const Event &event, const ObjectIds &ids)
{
    std::string classes;
    Json objects = Json::array();
    for (const Participant &each : event.participants) {
        const auto id = ids.of(each.kind, each.number);
        if (!id)
            continue;
        const std::string word = class_of(each.kind);
        Json object = {{"ObjectId", *id}, {"Class", word}};
        if (each.side != Crossing::Unknown)
            object["Crossing"] = crossing_name(each.side);
        objects.push_back(std::move(object));
        if (classes.find(word) == std::string::npos)
            classes += (classes.empty() ? "" : " ") + word;
    }
    if (objects.empty())
        return;
    data["ObjectId"] = objects.front()["ObjectId"];
    data["ClassTypes"] = classes;
    data["Objects"] = std::move(objects);
}

const char *event_name(Event::Kind kind)
{
    using enum Event::Kind;
    switch (kind) {
    case DaemonHere:
        return "daemon_here";
    case DaemonGone:
        return "daemon_gone";
    case DaemonUnwell:
        return "daemon_unwell";
    case DaemonWell:
        return "daemon_well";
    case ObjectAppeared:
        return "object_appeared";
    case ObjectLeft:
        return "object_left";
    case LineCrossed:
        return "line_crossed";
    case AreaEntered:
        return "area_entered";
    case AreaLeft:
        return "area_left";
    case TamperBegan:
        return "tamper_began";
    case TamperEnded:
        return "tamper_ended";
    case ResultsMissed:
        return "results_missed";
    }
    return "";
}

Json plain_place_of(const Detection &seen)
{
    return {{"x", seen.x}, {"y", seen.y}, {"width", seen.width}, {"height", seen.height}};
}

void add_end(Json &json, const Event &event)
{
    json["seconds"] = std::round(seconds_of(event) * 1000) / 1000;
    if (event.cut_off)
        json["cut_off"] = true;
}

void add_rule(Json &json, const Event &event)
{
    json["name"] = name_of(event.rule);
    json["event_code"] = event.rule.event;
    json["bit"] = event.rule.bit;
}

void add_participants(Json &json, const Event &event)
{
    json["objects"] = list_of(event.participants, [](const Participant &each) {
        Json object = {{"kind", kind_word(each.kind)}, {"id", each.number}};
        if (each.side != Crossing::Unknown)
            object["side"] = each.side == Crossing::ToLeft ? "left" : "right";
        return object;
    });
}

void add_object(Json &json, const Event &event)
{
    json["kind"] = kind_word(event.from.kind);
    json["id"] = event.from.number;
    json["from"] = plain_place_of(event.from);
}

} // namespace

std::string text_of(const Json &json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string host_name()
{
    char name[256] = "";
    gethostname(name, sizeof name - 1);
    return name;
}

Topics::Topics(const CameraNames &names)
    : prefix_(names.prefix),
      profile_(level(names.profile)),
      source_("&" + level(names.video_source)),
      configuration_(source_ + '/' + level(names.analytics))
{
}

std::string Topics::track(ObjectId id) const
{
    return prefix_ + "/va/track/" + std::to_string(id);
}

std::string Topics::frames(Stream stream) const
{
    return prefix_ + "/onvif-mj/VideoAnalytics/" + profile_ + '/' + std::string(name_of(stream));
}

std::string Topics::rule_topic(const char *name, const AlarmRule &rule) const
{
    return events() + "RuleEngine/" + name + '/' + configuration_ + '/' + plain_name(name_of(rule));
}

std::string Topics::line(const AlarmRule &rule) const
{
    return rule_topic("LineDetector/Crossed", rule);
}

std::string Topics::counter(const AlarmRule &rule) const
{
    return rule_topic("CountAggregation/Counter", rule);
}

std::string Topics::area(const AlarmRule &rule) const
{
    return rule_topic("FieldDetector/ObjectsInside", rule);
}

std::string Topics::tamper() const
{
    return events() + "VideoSource/GlobalSceneChange/AnalyticsService/" + source_;
}

std::string Topics::motion() const
{
    return events() + "VideoSource/MotionAlarm/" + source_;
}

std::string available_message(const Availability &availability)
{
    Json json = {{"State", availability.online ? "online" : "offline"}};
    if (availability.since)
        json["Since"] = utc_text(*availability.since);
    if (!availability.why.empty())
        json["Why"] = availability.why;
    json["Version"] = VA_VERSION;
    return text_of(json);
}

std::string frame_message(const ObjectFrame &frame)
{
    Json one = {{"@UtcTime", utc_text(frame.time)}, {"@Source", name_of(frame.stream)}};
    if (!frame.objects.empty()) {
        one["Transformation"] = transformation_of(frame.size);
        one["Object"] = list_of(frame.objects, object_of);
    }
    if (!frame.gone.empty()) {
        const auto entry = [](ObjectId id) { return Json{{"@ObjectId", id}}; };
        one["ObjectTree"] = {{"Delete", list_of(frame.gone, entry)}};
    }
    return text_of({{"Frame", Json::array({one})}});
}

std::string line_message(const Event &event, std::optional<std::uint64_t> count, SystemTime time,
                         const CameraNames &names, const ObjectIds &ids)
{
    Json data = Json::object();
    add_objects(data, event, ids);
    if (count)
        data["Count"] = *count;
    return event_text(time, rule_source(event.rule, names), data);
}

std::string counter_message(const AlarmRule &line, std::uint64_t count, SystemTime time,
                            const CameraNames &names)
{
    return event_text(time, rule_source(line, names), {{"Count", count}});
}

std::optional<std::uint64_t> count_in(const std::string &counter_message)
{
    constexpr std::uint64_t largest = 1'000'000'000'000'000; // all readers of JSON have more
    const Json json = Json::parse(counter_message, nullptr, false);
    const auto data = json.is_object() ? json.find("Data") : json.end();
    if (data == json.end() || !data->is_object())
        return std::nullopt;
    const auto count = data->find("Count");
    if (count == data->end() || !count->is_number_unsigned() || *count > largest)
        return std::nullopt;
    return count->get<std::uint64_t>();
}

std::string area_message(const Event &event, SystemTime time, const CameraNames &names,
                         const ObjectIds &ids)
{
    const bool inside = event.kind == Event::Kind::AreaEntered;
    Json data = {{"IsInside", inside}};
    if (inside)
        add_objects(data, event, ids);
    return event_text(time, rule_source(event.rule, names), data);
}

std::string empty_area_message(const AlarmRule &area, SystemTime time, const CameraNames &names)
{
    return event_text(time, rule_source(area, names), {{"IsInside", false}});
}

std::string state_message(bool state, SystemTime time, const CameraNames &names)
{
    return event_text(time, {{"Source", names.video_source}}, {{"State", state}});
}

std::string track_message(const Event &event, ObjectId id, SystemTime first, SystemTime last)
{
    const bool ended = event.kind == Event::Kind::ObjectLeft;
    Json json = {{"State", ended ? "Ended" : "Began"},
                 {"ObjectId", id},
                 {"Class", class_of(event.from.kind)},
                 {"First", place_of(event.from, first)}};
    if (ended) {
        json["Last"] = place_of(event.to, last);
        json["Seconds"] = seconds_of(event);
        json["CutOff"] = event.cut_off;
    }
    return text_of(json);
}

std::string scene_message(const Scene &scene)
{
    const Json size = {{"Width", scene.frame.width}, {"Height", scene.frame.height}};
    return text_of({{"Frame", size},
                    {"Shapes", list_of(scene.shapes, shape_of)},
                    {"Directions", known_directions()}});
}

std::string losses_message(const Losses &losses, SystemTime time)
{
    return text_of({{"UtcTime", utc_text(time)},
                    {"Frames", losses.frames},
                    {"Events", losses.events},
                    {"Results", losses.results},
                    {"Refused", losses.refused}});
}

Json event_json(const Event &event, SystemTime time)
{
    using enum Event::Kind;
    Json json = {{"time", iso_text(time)}, {"event", event_name(event.kind)}};
    switch (event.kind) {
    case ObjectAppeared:
        add_object(json, event);
        break;
    case ObjectLeft:
        add_object(json, event);
        json["to"] = plain_place_of(event.to);
        add_end(json, event);
        break;
    case LineCrossed:
        add_rule(json, event);
        add_participants(json, event);
        json["count"] = event.count;
        break;
    case AreaEntered:
        add_rule(json, event);
        add_participants(json, event);
        break;
    case AreaLeft:
        add_rule(json, event);
        add_end(json, event);
        break;
    case TamperEnded:
        add_end(json, event);
        break;
    case DaemonUnwell:
        json["why"] = event.why;
        break;
    case ResultsMissed:
        json["results"] = event.missed;
        break;
    case DaemonHere:
    case DaemonGone:
    case DaemonWell:
    case TamperBegan:
        break;
    }
    return json;
}

} // namespace va
