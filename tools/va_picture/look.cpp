#include "tools/va_picture/look.h"

#include "tools/va_picture/look_text.h"

namespace va::picture
{

namespace
{

// In the order of Shape::Kind.
constexpr Look shape_looks[] = {
    {"nondet", "non-detection", "non-detection window", "#8d99a8"},
    {"det", "detection", "detection window", "#3fb950"},
    {"noalarm", "no-detection", "no-detection area", "#b08d57"},
    {"line", "line", "line", "#ff9f43"},
    {"area", "area", "area", "#a78bfa"},
    {"fwatch", "face watch", "face watch window", "#d16ba5"},
    {"fdet", "face detection", "face detection window", "#e05d8c"},
};

// In the order of Detection::Kind.
constexpr Look detection_looks[] = {
    {"moving", "moving", "moving object", "#ffd93d"},
    {"static", "static", "static object", "#35d0e6"},
    {"face", "face", "face", "#ff9ecb"},
};

} // namespace

const Look ALARM_LOOK = {"lit", "ALARM", "alarm", "#ff3b30"};

const Look &look_of(Shape::Kind kind)
{
    return shape_looks[static_cast<std::size_t>(kind)];
}

const Look &look_of(Detection::Kind kind)
{
    return detection_looks[static_cast<std::size_t>(kind)];
}

const char *const STYLE_SHEET = LOOK_TEXT;

} // namespace va::picture
