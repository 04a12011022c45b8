#pragma once

#include "records/records.h"
#include "tools/common/entries.h"
#include "tools/va_picture/overlay.h"

#include <string>
#include <vector>

// The picture of a moment: the video frame with what the settings mark in it and what was seen.
struct Picture {
    ConfSize frame; // of the video, both above 0
    std::vector<Shape> shapes;
    std::vector<Sighting> sightings = {};
    VmfRecord alarms = {}; // what is lit
    bool tamper = false;
    std::string caption; // plain text
    std::string clock;
};

// As SVG. A browser that shows it loads it again twice a second.
std::string svg_text(const Picture &picture);
