#pragma once

#include "mqtt/settings.h"
#include "tools/common/events.h"

#include <string>

// Where what is told goes.
class Topics
{
public:
    explicit Topics(const Settings &settings);

    std::string available() const { return prefix_ + "/va/available"; }
    std::string scene() const { return prefix_ + "/va/scene"; }
    std::string lost() const { return prefix_ + "/va/lost"; }
    std::string track(std::uint32_t number) const;
    std::string frames(const StreamKind &kind) const;

    // Events by the names that ONVIF gives to what tells of them.
    std::string line(const AlarmRule &rule) const;
    std::string area(const AlarmRule &rule) const;
    std::string tamper() const;

private:
    std::string prefix_;
    std::string profile_;
    std::string source_;
    std::string configuration_; // with the source in front
};
