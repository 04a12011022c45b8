#pragma once

#include "tools/common/events.h"

#include <string>

// Events in words, for people.

// "moving 7 left after 8.0 s, from 160,650 to 1790,500"; places are the centres of boxes, in
// pixels.
std::string event_text(const Event &event);

// "moving", "static" or "face".
const char *kind_word(Sighting::Kind kind);

// From its first record to its last one.
double seconds_of(const Event &event);
