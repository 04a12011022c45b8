#include "mqtt/discovery.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

namespace va::mqtt
{

namespace
{

// Home Assistant's names hold letters, digits, - and _ alone.
std::string node_of(const Settings &settings)
{
    std::string node = "va_" + settings.names.prefix;
    std::ranges::replace_if(
        node, [](unsigned char c) { return !std::isalnum(c) && c != '-'; }, '_');
    return node;
}

class Entity
{
public:
    // `component` is what it is to Home Assistant, `id` tells it from the camera's others.
    Entity(const Settings &settings, const char *component, const std::string &id)
        : settings_(settings),
          id_(node_of(settings) + '_' + id),
          topic_(settings.discovery + '/' + component + '/' + node_of(settings) + '/' + id +
                 "/config")
    {
    }

    const std::string &topic() const { return topic_; }

    std::string payload(const std::string &name, const std::string &state_topic, const Json &more,
                        const Topics &topics) const
    {
        Json json = {{"name", name},
                     {"unique_id", id_},
                     {"state_topic", state_topic},
                     {"availability_topic", topics.available()},
                     {"device",
                      {{"identifiers", Json::array({node_of(settings_)})},
                       {"name", settings_.names.prefix}}}};
        json.update(more);
        return text_of(json);
    }

private:
    const Settings &settings_;
    std::string id_;
    std::string topic_;
};

// A template that gives ON while the datum is true.
Json binary_sensor(const char *device_class, const std::string &datum)
{
    return {{"device_class", device_class},
            {"value_template", "{{ 'ON' if value_json.Data." + datum + " else 'OFF' }}"}};
}

Json line_event()
{
    return {{"event_types", Json::array({"crossed"})},
            {"value_template", R"({"event_type": "crossed"})"}};
}

} // namespace

std::vector<std::pair<std::string, std::string>>
discovery_states(std::span<const AlarmRule> rules, const Settings &settings, const Topics &topics)
{
    std::vector<std::pair<std::string, std::string>> states;
    const auto add = [&](AlarmRule::Source source, int number) {
        const bool is_line = source == AlarmRule::Source::Line;
        const std::string id = (is_line ? "line_" : "area_") + std::to_string(number);
        const std::string name = (is_line ? "Line " : "Area ") + std::to_string(number);
        const Entity entity(settings, is_line ? "event" : "binary_sensor", id);
        const auto rule = std::ranges::find_if(rules, [&](const AlarmRule &known) {
            return known.source == source && known.number == number;
        });
        states.emplace_back(entity.topic(), "");
        if (rule != rules.end())
            states.back().second =
                is_line ? entity.payload(name, topics.line(*rule), line_event(), topics)
                        : entity.payload(name, topics.area(*rule),
                                         binary_sensor("occupancy", "IsInside"), topics);
    };
    for (int number = 0; number < MAX_LINES; ++number)
        add(AlarmRule::Source::Line, number);
    for (int number = 0; number < MAX_AREAS; ++number)
        add(AlarmRule::Source::Area, number);
    const Entity tamper(settings, "binary_sensor", "tamper");
    states.emplace_back(
        tamper.topic(),
        TAMPER_RECORDS_ARE_ALARMS
            ? tamper.payload("Tamper", topics.tamper(), binary_sensor("tamper", "State"), topics)
            : "");
    return states;
}

} // namespace va::mqtt
