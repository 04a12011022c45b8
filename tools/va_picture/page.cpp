#include "tools/va_picture/page.h"

#include "tools/common/json.h"
#include "tools/va_picture/page_text.h"
#include "tools/va_picture/replace_file.h"

void write_page(const std::string &path)
{
    replace_file(path + ".html", PAGE_TEXT);
}

void write_drawing(const std::string &path, const Picture &picture, const std::string &drawing)
{
    replace_file(path + ".js", "show({\"drawn\":" + std::to_string(picture.drawn) +
                                   ",\"state\":" + quoted(picture.state_text) +
                                   ",\"drawing\":" + quoted(drawing) + "});\n");
}
