#pragma once

#include "mqtt/settings.h"
#include "tools/common/messages.h"

#include <span>
#include <string>
#include <utility>
#include <vector>

namespace va::mqtt
{

// The topics of one camera's discovery, for a subscription.
std::string discovery_filter(const Settings &settings);

// What Home Assistant reads to show a camera's lines, areas and tamper alarm by itself: topics and
// payloads, one for each line and area that a camera can have. The payload of one that is not in
// force is empty, which removes it.
std::vector<std::pair<std::string, std::string>>
discovery_states(std::span<const AlarmRule> rules, const Settings &settings, const Topics &topics);

} // namespace va::mqtt
