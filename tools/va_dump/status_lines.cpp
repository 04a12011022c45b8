#include "tools/va_dump/status_lines.h"

#include <algorithm>
#include <cctype>

namespace
{

std::size_t count_digits(std::string_view text)
{
    const auto *const end = std::ranges::find_if_not(
        text, [](unsigned char letter) { return std::isdigit(letter) != 0; });
    return static_cast<std::size_t>(end - text.begin());
}

} // namespace

std::vector<std::string> names_below(const DaemonStatus &status, std::string_view beginning)
{
    std::vector<std::string> names;
    for (const auto &[key, value] : status.lines) {
        if (!key.starts_with(beginning))
            continue;
        const std::string rest = key.substr(beginning.size());
        const std::string name = rest.substr(0, rest.find('.'));
        if (std::ranges::find(names, name) == names.end())
            names.push_back(name);
    }
    return names;
}

bool is_number(std::string_view value)
{
    if (value.starts_with('-'))
        value.remove_prefix(1);
    const std::size_t whole = count_digits(value);
    if (whole == 0 || (whole > 1 && value.front() == '0'))
        return false;
    value.remove_prefix(whole);
    return value.empty() || (value.front() == '.' && value.size() > 1 &&
                             count_digits(value.substr(1)) == value.size() - 1);
}
