#pragma once

#include "mqtt/settings.h"

namespace va::mqtt
{

// Takes back all that the broker retains of a camera that is no longer there: below its prefix and,
// with discovery, in Home Assistant. Reports how many messages that were. Throws std::runtime_error
// when the broker does not let that be read or written, or does not answer for half a minute, or
// when the camera goes on publishing.
void forget(Settings settings);

} // namespace va::mqtt
