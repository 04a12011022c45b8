#pragma once

#include "tools/va_picture/picture.h"

#include <string>

// The page that shows the picture PATH in a browser. All throw std::system_error.
namespace va::picture
{

// A file whole in the place of PATH.
void replace(const std::string &path, const std::string &content);

// PATH.html, which is the same for every picture.
void write_page(const std::string &path);

// PATH.js: the drawing, as the page wants it.
void write_drawing(const std::string &path, const Picture &picture, const std::string &drawing);

} // namespace va::picture
