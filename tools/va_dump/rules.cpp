#include "tools/va_dump/rules.h"

#include <charconv>
#include <optional>
#include <string>
#include <string_view>

namespace
{

std::optional<int> number_in(std::string_view text)
{
    int number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || stop != text.data() + text.size())
        return std::nullopt;
    return number;
}

// Nothing when it is not understood: a daemon of another version.
std::optional<AlarmRule> rule_of(std::string_view name, std::optional<int> event,
                                 std::optional<int> bit)
{
    if (!event || !bit)
        return std::nullopt;
    for (const auto source : {AlarmRule::Source::Line, AlarmRule::Source::Area}) {
        const std::string beginning = name_beginning(source);
        if (name.starts_with(beginning)) {
            if (const auto number = number_in(name.substr(beginning.size())))
                return AlarmRule{source, *event, *bit, number};
        }
    }
    return std::nullopt;
}

} // namespace

std::vector<AlarmRule> rules_of(const DaemonStatus &status)
{
    std::vector<AlarmRule> rules;
    for (int filter = 0;; ++filter) {
        const std::string key = "filter." + std::to_string(filter);
        const std::string_view name = status.value(key + ".name");
        if (name.empty())
            return rules;
        if (const auto rule = rule_of(name, number_in(status.value(key + ".event")),
                                      number_in(status.value(key + ".bit"))))
            rules.push_back(*rule);
    }
}
