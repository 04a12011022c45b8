#pragma once

#include "tools/common/entries.h"
#include "tools/va_picture/overlay.h"

// How each thing is drawn and what it is called.

struct Look {
    const char *style;   // class of the style sheet
    const char *word;    // in tags
    const char *meaning; // in the legend
    const char *colour;
};

const Look &look_of(Shape::Kind kind);
const Look &look_of(Sighting::Kind kind);
extern const Look ALARM_LOOK;

// The styles of all classes, and the patterns they fill with.
extern const char *const STYLE_SHEET;
