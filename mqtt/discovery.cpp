#include "mqtt/discovery.h"

#include "util/text.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <nlohmann/json.hpp>

namespace va::mqtt
{

namespace
{

struct Entity {
    const char *component; // what it is to Home Assistant
    std::string id;        // tells it from the camera's others
    std::string name;
    Json more;
};

// FNV-1a.
std::uint32_t hash_of(const std::string &text)
{
    std::uint32_t hash = 2166136261;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619;
    return hash;
}

// Home Assistant's names hold letters, digits, - and _ alone: "/" becomes "_". What would be lost
// of any other prefix a hash of it makes up for, so that no two cameras have one name.
std::string node_of(const Settings &settings)
{
    std::string node = "va_" + settings.names.prefix;
    const auto is_plain = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '-';
    };
    const bool is_unlike = !std::ranges::all_of(settings.names.prefix,
                                                [&](char c) { return is_plain(c) || c == '/'; });
    std::ranges::replace_if(
        node, [&](char c) { return !is_plain(c); }, '_');
    return is_unlike ? node + formatted("_%08x", hash_of(settings.names.prefix)) : node;
}

// With a template that gives ON while the member of the data is true.
Entity binary_sensor(std::string id, std::string name, const char *device_class,
                     const std::string &topic, const std::string &member)
{
    return {"binary_sensor",
            std::move(id),
            std::move(name),
            {{"state_topic", topic},
             {"device_class", device_class},
             {"value_template", "{{ 'ON' if value_json.Data." + member + " else 'OFF' }}"}}};
}

// When and who are attributes of the event.
Entity crossing(const std::string &number, const std::string &topic)
{
    return {"event",
            "line_" + number,
            "Line " + number,
            {{"state_topic", topic},
             {"event_types", Json::array({"crossed"})},
             {"value_template", "{{ dict(value_json.Data, event_type='crossed', "
                                "time=value_json.UtcTime) | tojson }}"}}};
}

Entity counter(const std::string &number, const std::string &topic)
{
    return {"sensor",
            "line_" + number + "_count",
            "Line " + number + " count",
            {{"state_topic", topic},
             {"state_class", "total_increasing"},
             {"value_template", "{{ value_json.Data.Count }}"}}};
}

std::vector<Entity> diagnostics(const Topics &topics)
{
    return {{"sensor",
             "lost",
             "Lost events",
             {{"state_topic", topics.lost()},
              {"state_class", "total_increasing"},
              {"value_template", "{{ value_json.Events + value_json.Refused }}"},
              {"json_attributes_topic", topics.lost()},
              {"entity_category", "diagnostic"}}},
            {"sensor",
             "since",
             "Online since",
             {{"state_topic", topics.available()},
              {"device_class", "timestamp"},
              {"value_template", "{{ value_json.Since | default(none) }}"}, // none: not known
              {"entity_category", "diagnostic"}}}};
}

std::vector<Entity> entities_of(std::span<const AlarmRule> rules, const Settings &settings,
                                const Topics &topics)
{
    std::vector<Entity> all = diagnostics(topics);
    for (const AlarmRule &rule : rules) {
        const std::string number = std::to_string(rule.number.value_or(0));
        if (rule.source == AlarmRule::Source::Line) {
            all.push_back(crossing(number, topics.line(rule)));
            all.push_back(counter(number, topics.counter(rule)));
        } else {
            all.push_back(binary_sensor("area_" + number, "Area " + number, "occupancy",
                                        topics.area(rule), "IsInside"));
        }
    }
    if (TAMPER_RECORDS_ARE_ALARMS)
        all.push_back(binary_sensor("tamper", "Tamper", "tamper", topics.tamper(), "State"));
    if (!OBJECT_FIELDS.empty())
        all.push_back(binary_sensor("motion", "Motion", "motion", topics.motion(), "State"));
    if (settings.reconfig)
        all.push_back({"button",
                       "reconfig",
                       "Reload settings",
                       {{"command_topic", topics.reconfig()},
                        {"payload_press", "reconfig"},
                        {"entity_category", "config"}}});
    return all;
}

std::string payload_of(const Entity &entity, const Settings &settings, const Topics &topics)
{
    const std::string node = node_of(settings);
    const Json device = {{"identifiers", Json::array({node})},
                         {"name", settings.names.prefix},
                         {"model", "Camera with va"},
                         {"sw_version", VA_VERSION}};
    Json json = {{"name", entity.name},
                 {"unique_id", node + '_' + entity.id},
                 {"availability_topic", topics.available()},
                 {"availability_template", "{{ value_json.State }}"},
                 {"qos", settings.qos},
                 {"device", device},
                 {"origin", {{"name", "va_mqtt"}, {"sw_version", VA_VERSION}}}};
    json.update(entity.more);
    return text_of(json);
}

} // namespace

std::vector<std::pair<std::string, std::string>> discovery_states(std::span<const AlarmRule> rules,
                                                                  const Settings &settings,
                                                                  const Topics &topics,
                                                                  std::set<std::string> &retained)
{
    const std::string beginning = settings.discovery + '/';
    const std::string node = '/' + node_of(settings) + '/';
    std::vector<std::pair<std::string, std::string>> states;
    std::set<std::string> known;
    for (const Entity &entity : entities_of(rules, settings, topics)) {
        std::string topic = beginning + entity.component;
        topic += node + entity.id + "/config";
        known.insert(topic);
        states.emplace_back(topic, payload_of(entity, settings, topics));
    }
    for (const std::string &topic : retained) {
        const bool is_ours = topic.starts_with(beginning) && topic.find(node) != std::string::npos;
        if (is_ours && !known.contains(topic))
            states.emplace_back(topic, "");
    }
    retained = std::move(known);
    return states;
}

std::string discovery_filter(const Settings &settings)
{
    return settings.discovery + "/+/" + node_of(settings) + "/+/config";
}

} // namespace va::mqtt
