#include "va/report.h"

#include "util/text.h"

#include <algorithm>
#include <new>
#include <utility>

namespace va
{

namespace
{

// A value of the store as part of one line.
std::string printable(std::string text)
{
    std::ranges::replace_if(
        text, [](char letter) { return letter < ' ' || letter > '~'; }, '?');
    return text;
}

std::string lines_of(const ConfFindings &findings)
{
    std::string used;
    std::string left_out;
    for (const auto &[key, setting] : findings.settings) {
        const std::string item = key + ": " + printable(setting.value);
        if (setting.in_use())
            used += "setting." + item + '\n';
        else
            left_out += "left_out." + item + " (" + setting.reason() + ")\n";
    }
    std::string filters;
    for (const auto &[number, filter] : findings.filters)
        filters += formatted("filter.%d.name: %s\nfilter.%d.event: %d\nfilter.%d.bit: %d\n", number,
                             filter.name.c_str(), number, filter.event, number, filter.bit);
    return filters + used + left_out;
}

} // namespace

void SettingsReport::publish()
{
    std::string lines;
    bool is_complete = findings.is_complete;
    try {
        lines = lines_of(findings);
    } catch (const std::bad_alloc &) {
        is_complete = false;
    }
    const ScopedLock guard(lock_);
    shown_.lines = std::move(lines);
    shown_.is_complete = is_complete;
}

void SettingsReport::publish_reload()
{
    publish();
    const ScopedLock guard(lock_);
    ++shown_.reloads;
    shown_.last_reload = std::chrono::system_clock::now();
}

SettingsReport::Shown SettingsReport::shown() const
{
    const ScopedLock guard(lock_);
    return shown_;
}

} // namespace va
