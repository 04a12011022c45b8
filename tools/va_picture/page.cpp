#include "tools/va_picture/page.h"

#include "tools/common/messages.h"
#include "tools/va_picture/page_text.h"
#include "util/file.h"

#include <nlohmann/json.hpp>

namespace va::picture
{

void replace(const std::string &path, const std::string &content)
{
    if (replace_file(path, content) != 0)
        throw_file_error(path);
}

void write_page(const std::string &path)
{
    replace(path + ".html", PAGE_TEXT);
}

void write_drawing(const std::string &path, const Picture &picture, const std::string &drawing)
{
    const Json json = {
        {"drawn", picture.drawn}, {"state", picture.state_text}, {"drawing", drawing}};
    replace(path + ".js", "show(" + text_of(json) + ");\n");
}

} // namespace va::picture
