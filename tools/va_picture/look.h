#pragma once

#include "client/entries.h"
#include "client/shapes.h"

// How each thing is drawn and what it is called.
namespace va::picture
{

struct Look {
    const char *style;   // class of the style sheet
    const char *word;    // in tags
    const char *meaning; // in the legend
    const char *colour;
};

const Look &look_of(Shape::Kind kind);
const Look &look_of(Detection::Kind kind);
extern const Look ALARM_LOOK;

// The styles of all classes, and the patterns they fill with.
extern const char *const STYLE_SHEET;

} // namespace va::picture
