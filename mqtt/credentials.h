#pragma once

#include "mqtt/settings.h"

#include <string>

struct mosquitto;

namespace va::mqtt
{

// Gives the library what identifies the camera to a broker, and the broker to the camera, as its
// files are now. A password is the first line of a file that its owner alone may change and that
// others than its group cannot read. Throws std::runtime_error and std::system_error when a file
// cannot be used, which hold nothing of its content.
void set_credentials(mosquitto *handle, const Settings &settings);

// Whether a password goes to the host as plain text, over a network.
bool shows_password(const Settings &settings, const std::string &host);

} // namespace va::mqtt
