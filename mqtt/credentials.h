#pragma once

#include "mqtt/settings.h"

struct mosquitto;

namespace va::mqtt
{

// Gives the library what identifies the camera to the broker, and the broker to the camera. A
// password is the first line of a file that its owner alone may change and that others than its
// group cannot read. Throws std::runtime_error when a file cannot be used; its text holds nothing
// of the content.
void set_credentials(mosquitto *handle, const Settings &settings);

} // namespace va::mqtt
