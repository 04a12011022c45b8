#include "mqtt/discovery.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

namespace va::mqtt
{

namespace
{

using enum AlarmRule::Source;

struct Entity {
    const char *component; // what it is to Home Assistant
    std::string id;        // tells it from the camera's others
    std::string name;
    std::string state_topic;
    Json more;
};

// Home Assistant's names hold letters, digits, - and _ alone.
std::string node_of(const Settings &settings)
{
    std::string node = "va_" + settings.names.prefix;
    std::ranges::replace_if(
        node, [](unsigned char c) { return !std::isalnum(c) && c != '-'; }, '_');
    return node;
}

// With a template that gives ON while the member of the data is true.
Json binary_sensor(const char *device_class, const std::string &member)
{
    return {{"device_class", device_class},
            {"value_template", "{{ 'ON' if value_json.Data." + member + " else 'OFF' }}"}};
}

Entity entity_of(const AlarmRule &rule, const Topics &topics)
{
    const std::string number = std::to_string(rule.number.value_or(0));
    if (rule.source == Line)
        return {"event",
                "line_" + number,
                "Line " + number,
                topics.line(rule),
                {{"event_types", Json::array({"crossed"})},
                 {"value_template", R"({"event_type": "crossed"})"}}};
    return {"binary_sensor", "area_" + number, "Area " + number, topics.area(rule),
            binary_sensor("occupancy", "IsInside")};
}

std::string payload_of(const Entity &entity, const Settings &settings, const Topics &topics)
{
    const std::string node = node_of(settings);
    Json json = {
        {"name", entity.name},
        {"unique_id", node + '_' + entity.id},
        {"state_topic", entity.state_topic},
        {"availability_topic", topics.available()},
        {"availability_template", "{{ value_json.State }}"},
        {"device", {{"identifiers", Json::array({node})}, {"name", settings.names.prefix}}}};
    json.update(entity.more);
    return text_of(json);
}

} // namespace

std::string discovery_filter(const Settings &settings)
{
    return settings.discovery + "/+/" + node_of(settings) + "/+/config";
}

std::vector<std::pair<std::string, std::string>>
discovery_states(std::span<const AlarmRule> rules, const Settings &settings, const Topics &topics)
{
    std::vector<std::pair<std::string, std::string>> states;
    const auto add = [&](const Entity &entity, bool exists) {
        states.emplace_back(settings.discovery + '/' + entity.component + '/' + node_of(settings) +
                                '/' + entity.id + "/config",
                            exists ? payload_of(entity, settings, topics) : "");
    };
    const auto add_rules = [&](AlarmRule::Source source, int count) {
        for (int number = 0; number < count; ++number) {
            const auto is_it = [&](const AlarmRule &rule) {
                return rule.source == source && rule.number == number;
            };
            add(entity_of({source, 0, 0, number}, topics), std::ranges::any_of(rules, is_it));
        }
    };
    add_rules(Line, MAX_LINES);
    add_rules(Area, MAX_AREAS);
    add({"binary_sensor", "tamper", "Tamper", topics.tamper(), binary_sensor("tamper", "State")},
        TAMPER_RECORDS_ARE_ALARMS);
    return states;
}

} // namespace va::mqtt
