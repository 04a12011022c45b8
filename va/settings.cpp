#include "va/settings.h"

#include <algorithm>
#include <new>
#include <utility>

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
    for (const auto &[key, setting] : findings.settings()) {
        const std::string item = key + ": " + printable(setting.value);
        if (setting.in_use())
            used += "setting." + item + '\n';
        else
            left_out += "left_out." + item + " (" + setting.reason() + ")\n";
    }
    std::string filters;
    const auto add = [&filters](const std::string &key, const std::string &value) {
        filters.append(key).append(": ").append(value).append("\n");
    };
    for (const auto &[number, filter] : findings.filters()) {
        const std::string key = "filter." + std::to_string(number);
        add(key + ".name", filter.name);
        add(key + ".event", std::to_string(filter.event));
        add(key + ".bit", std::to_string(filter.bit));
    }
    return filters + used + left_out;
}

} // namespace

void VaSettings::publish()
{
    std::string lines;
    bool is_complete = findings.is_complete();
    try {
        lines = lines_of(findings);
    } catch (const std::bad_alloc &) {
        is_complete = false;
    }
    const va::ScopedLock guard(lock_);
    shown_.lines = std::move(lines);
    shown_.is_complete = is_complete;
}

void VaSettings::publish_reload()
{
    publish();
    const va::ScopedLock guard(lock_);
    ++shown_.reloads;
    shown_.last_reload = std::chrono::system_clock::now();
}

VaSettings::Shown VaSettings::shown() const
{
    const va::ScopedLock guard(lock_);
    return shown_;
}
