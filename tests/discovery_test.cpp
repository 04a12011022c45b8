#include "mqtt/discovery.h"

#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include <gtest/gtest.h>

namespace
{

using namespace va;
using namespace va::mqtt;

Settings settings_of(const char *prefix)
{
    Settings settings;
    settings.names.prefix = prefix;
    settings.discovery = "ha";
    return settings;
}

TEST(DiscoveryTest, NoTwoCamerasAreOneDevice)
{
    const auto node_of = [](const char *prefix) { return discovery_filter(settings_of(prefix)); };
    EXPECT_EQ("ha/+/va_cameras_Hall-1/+/config", node_of("cameras/Hall-1"));
    EXPECT_EQ("ha/+/va_a_b_1ba46871/+/config", node_of("a_b")); // not that of a/b
    EXPECT_EQ("ha/+/va_a_b_108bf50c/+/config", node_of("a.b"));
}

TEST(DiscoveryTest, TakesBackWhatIsRetainedAndNoMore)
{
    Settings settings = settings_of("a/b");
    settings.reconfig = true;
    settings.qos = 2;
    const Topics topics(settings.names);
    std::set<std::string> retained{"ha/event/va_a_b/line_2/config", "ha/event/va_a/line_2/config",
                                   "ha/sensor/va_a_b/lost/config", "a/b/onvif-ej/x"};
    // By their ends, with what tells them from others.
    const auto changes = [&](std::vector<AlarmRule> rules) {
        std::map<std::string, std::string> told;
        for (const auto &[topic, payload] : discovery_states(rules, settings, topics, retained)) {
            const Json json = payload.empty() ? Json() : Json::parse(payload);
            EXPECT_TRUE(topic.starts_with("ha/") && topic.ends_with("/config"));
            const std::string name = topic.substr(3, topic.size() - 3 - 7);
            told[name] = payload.empty() ? "" : json.value("device_class", json["name"]);
            if (payload.empty())
                continue;
            EXPECT_EQ("a/b/va/available", json["availability_topic"]);
            EXPECT_EQ(2, json["qos"]);
            EXPECT_EQ("va_a_b" + name.substr(name.rfind('/')).replace(0, 1, "_"),
                      json["unique_id"]);
        }
        return told;
    };
    const std::map<std::string, std::string> always{{"sensor/va_a_b/lost", "Lost events"},
                                                    {"sensor/va_a_b/since", "timestamp"},
                                                    {"binary_sensor/va_a_b/tamper", "tamper"},
                                                    {"binary_sensor/va_a_b/motion", "motion"},
                                                    {"button/va_a_b/reconfig", "Reload settings"}};
    auto expected = always;
    expected.insert({{"event/va_a_b/line_2", ""},
                     {"event/va_a_b/line_0", "Line 0"},
                     {"sensor/va_a_b/line_0_count", "Line 0 count"},
                     {"binary_sensor/va_a_b/area_1", "occupancy"}});
    EXPECT_EQ(expected,
              changes({{AlarmRule::Source::Line, 1, 0, 0}, {AlarmRule::Source::Area, 3, 0, 1}}));
    settings.reconfig = false;
    expected = always;
    for (const char *gone : {"event/va_a_b/line_0", "sensor/va_a_b/line_0_count",
                             "binary_sensor/va_a_b/area_1", "button/va_a_b/reconfig"})
        expected[gone] = "";
    EXPECT_EQ(expected, changes({}));
    expected = always;
    expected.erase("button/va_a_b/reconfig");
    EXPECT_EQ(expected, changes({}));
}

} // namespace
