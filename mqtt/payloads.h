#pragma once

#include "conf/parts.h"
#include "mqtt/settings.h"
#include "tools/common/events.h"
#include "tools/va_picture/overlay.h"

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

// What is told, as JSON. Places are pixels of the video frame, those of the settings' shapes
// ten-thousandths of it.

using SystemTime = std::chrono::system_clock::time_point;

// The sightings of a result. Its transformation maps pixels to ONVIF's frame, which is 2 wide and 2
// high around the origin, y upwards.
std::string frame_payload(std::span<const Sighting> sightings, SystemTime time, ConfSize frame,
                          const Settings &settings);

std::string line_payload(const AlarmRule &rule, SystemTime time, const Settings &settings);
std::string area_payload(const AlarmRule &rule, bool inside, SystemTime time,
                         const Settings &settings);
std::string tamper_payload(bool tampered, SystemTime time, const Settings &settings);

// An object that appeared or left; `first` and `last` are when it was first and last seen.
std::string track_payload(const Event &event, SystemTime first, SystemTime last);

// The rule of a line or an area.
AlarmRule rule_of(const Shape &shape);

// What the settings mark in the frame.
std::string scene_payload(ConfSize frame, std::span<const Shape> shapes);

// What was not told, since the program began.
struct Losses {
    std::uint64_t frames = 0;  // the broker was away or slow
    std::uint64_t events = 0;  // the broker was away for too many
    std::uint64_t results = 0; // the daemon's own, missing in their numbers
    bool operator==(const Losses &other) const = default;
};
std::string losses_payload(const Losses &losses, SystemTime time);
