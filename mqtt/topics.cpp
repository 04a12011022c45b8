#include "mqtt/topics.h"

namespace
{

// A value as one level of a topic, without what has a meaning there.
std::string level(std::string value)
{
    std::erase_if(value, [](char c) { return c == '#' || c == '+' || c == '/'; });
    return value;
}

} // namespace

Topics::Topics(const Settings &settings)
    : prefix_(settings.prefix),
      profile_(level(settings.profile)),
      source_("&" + level(settings.video_source)),
      configuration_(source_ + '/' + level(settings.analytics))
{
}

std::string Topics::track(std::uint32_t number) const
{
    return prefix_ + "/va/track/" + std::to_string(number);
}

std::string Topics::frames(const StreamKind &kind) const
{
    return prefix_ + "/onvif-mj/VideoAnalytics/" + profile_ + '/' + std::string(kind.name);
}

std::string Topics::line(const AlarmRule &rule) const
{
    return prefix_ + "/onvif-ej/RuleEngine/LineDetector/Crossed/" + configuration_ + '/' +
           name_of(rule);
}

std::string Topics::area(const AlarmRule &rule) const
{
    return prefix_ + "/onvif-ej/RuleEngine/FieldDetector/ObjectsInside/" + configuration_ + '/' +
           name_of(rule);
}

std::string Topics::tamper() const
{
    return prefix_ + "/onvif-ej/VideoSource/GlobalSceneChange/AnalyticsService/" + source_;
}
