#pragma once

#include "mqtt/settings.h"
#include "tools/common/messages.h"

#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace va::mqtt
{

// What Home Assistant reads to show a camera by itself: topics and payloads, one for each line and
// area in force, for tampering, motion, what was lost and since when the camera is there. The
// payload of one that is no more is empty, which removes it.
//
// `retained`: the topics of discovery that the broker retains, of an earlier run too; those of
// other devices among them are left alone. It is brought up to date.
std::vector<std::pair<std::string, std::string>> discovery_states(std::span<const AlarmRule> rules,
                                                                  const Settings &settings,
                                                                  const Topics &topics,
                                                                  std::set<std::string> &retained);

// What to subscribe to for those of this camera.
std::string discovery_filter(const Settings &settings);

} // namespace va::mqtt
