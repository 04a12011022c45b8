#include "tools/va_picture/look.h"

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

// In the order of Sighting::Kind.
constexpr Look sighting_looks[] = {
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

const Look &look_of(Sighting::Kind kind)
{
    return sighting_looks[static_cast<std::size_t>(kind)];
}

const char STYLE_SHEET[] =
    "<style>\n"
    "text{font-family:sans-serif;font-size:15px;fill:#e6edf3}\n"
    ".tag{font-size:14px;font-weight:bold;fill:#10151c}\n"
    ".badge{font-weight:bold;fill:#fff}\n"
    ".note{fill:#9aa7b4}\n"
    ".state{font-weight:bold}\n"
    ".old{display:none;font-weight:bold;fill:#ff9f43}\n"
    ".ground{fill:#18212c}\n"
    ".grid{stroke:#2a3644;stroke-width:1}\n"
    ".nondet{fill:url(#hatch);stroke:#8d99a8;stroke-width:2}\n"
    ".det{fill:none;stroke:#3fb950;stroke-width:2.5;stroke-dasharray:12 6}\n"
    ".noalarm{fill:url(#dots);stroke:#b08d57;stroke-width:2;stroke-dasharray:3 4}\n"
    ".line{fill:none;stroke:#ff9f43;stroke-width:4;stroke-linecap:round}\n"
    ".area{fill:#a78bfa;fill-opacity:.14;stroke:#a78bfa;stroke-width:2.5}\n"
    ".fwatch{fill:none;stroke:#d16ba5;stroke-width:2;stroke-dasharray:6 5}\n"
    ".fdet{fill:none;stroke:#e05d8c;stroke-width:2.5}\n"
    ".moving{fill:#ffd93d;fill-opacity:.18;stroke:#ffd93d;stroke-width:3}\n"
    ".static{fill:#35d0e6;fill-opacity:.18;stroke:#35d0e6;stroke-width:3}\n"
    ".face{fill:#ff9ecb;fill-opacity:.18;stroke:#ff9ecb;stroke-width:3}\n"
    ".trail{fill:none;stroke:#ffd93d;stroke-width:3;stroke-linecap:round}\n"
    ".head{fill:#ffd93d}\n"
    ".lit{fill:#ff3b30;fill-opacity:.3;stroke:#ff3b30;stroke-width:6}\n"
    ".alarm{fill:#ff3b30}\n"
    ".unused{opacity:.35}\n"
    ".gone .scene,.aged .scene{filter:grayscale(1);opacity:.45}\n"
    ".aged .state{display:none}\n"
    ".aged .old{display:inline}\n"
    "</style>\n"
    "<defs>\n"
    "<pattern id='hatch' width='12' height='12' patternUnits='userSpaceOnUse' "
    "patternTransform='rotate(45)'><rect width='12' height='12' fill='#0b0f14' "
    "fill-opacity='.55'/><path d='M0 0V12' stroke='#8d99a8' stroke-width='3' "
    "stroke-opacity='.55'/></pattern>\n"
    "<pattern id='dots' width='14' height='14' patternUnits='userSpaceOnUse'>"
    "<circle cx='4' cy='4' r='2' fill='#b08d57' fill-opacity='.8'/></pattern>\n"
    "</defs>\n";
