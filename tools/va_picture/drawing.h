#pragma once

#include "tools/va_picture/picture.h"

#include <string>

namespace va::picture
{

// The picture as SVG. Opened by itself it tells, once it is older than three seconds, since when it
// has not been drawn; a page that shows it does so by giving its outermost element the class
// "aged".
std::string svg_text(const Picture &picture);

} // namespace va::picture
