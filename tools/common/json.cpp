#include "tools/common/json.h"

#include "tools/common/text.h"

std::string quoted(std::string_view text)
{
    std::string all = "\"";
    for (const char letter : text) {
        if (letter == '"' || letter == '\\')
            all += '\\';
        if (static_cast<unsigned char>(letter) < ' ')
            all += formatted("\\u%04x", static_cast<unsigned>(letter));
        else
            all += letter;
    }
    return all + '"';
}

std::string member(std::string_view name, const std::string &value)
{
    return quoted(name) + ':' + value;
}
