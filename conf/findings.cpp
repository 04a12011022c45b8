#include "conf/findings.h"

#include <cstring>
#include <iterator>
#include <new>
#include <string_view>

namespace
{

thread_local ConfFindings *collected = nullptr;

// Whether a default says that there is nothing, as that of a window's edge does.
bool is_none(std::string_view default_text)
{
    return default_text.empty() || default_text == "-1";
}

} // namespace

ConfFindings::Collector::Collector(ConfFindings &findings)
{
    collected = &findings;
}

ConfFindings::Collector::~Collector()
{
    collected = nullptr;
}

template <class What>
void ConfFindings::tell(What what)
{
    if (!collected)
        return;
    try {
        what(*collected);
    } catch (const std::bad_alloc &) {
        collected->complete_ = false;
    }
}

void ConfFindings::note(const char *key, const char *value, const char *default_text)
{
    const bool is_default = std::strcmp(value, default_text) == 0;
    if (is_default && is_none(default_text)) {
        settings_.erase(key);
        return;
    }
    Setting &setting = settings_[key];
    setting.value = value;
    setting.is_default = is_default;
    setting.why_not.clear();
}

void ConfFindings::leave_out(const char *key, const char *why)
{
    if (const auto setting = settings_.find(key); setting != settings_.end())
        setting->second.why_not = why;
}

void ConfFindings::leave_out_group(const char *beginning, const char *why)
{
    auto setting = settings_.lower_bound(beginning);
    while (setting != settings_.end() && setting->first.starts_with(beginning)) {
        setting->second.why_not = why;
        setting = setting->second.is_default ? settings_.erase(setting) : std::next(setting);
    }
}

void conf_note(const char *key, const char *value, const char *default_text)
{
    ConfFindings::tell([=](ConfFindings &findings) { findings.note(key, value, default_text); });
}

void conf_leaveOut(const char *key, const char *why)
{
    ConfFindings::tell([=](ConfFindings &findings) { findings.leave_out(key, why); });
}

void conf_use(const char *key, const char *why_not)
{
    ConfFindings::tell([=](ConfFindings &findings) {
        const auto setting = findings.settings_.find(key);
        if (setting != findings.settings_.end())
            setting->second.unfit = why_not ? why_not : "";
    });
}

void conf_leaveOutGroup(const char *beginning, const char *why)
{
    ConfFindings::tell([=](ConfFindings &findings) { findings.leave_out_group(beginning, why); });
}

void conf_noteFilter(int number, const char *name, std::int32_t event, int bit)
{
    ConfFindings::tell([=](ConfFindings &findings) {
        findings.filters_[number] = {name, event, bit};
    });
}

void conf_noteFilterNum(int count)
{
    ConfFindings::tell([=](ConfFindings &findings) {
        findings.filters_.erase(findings.filters_.lower_bound(count), findings.filters_.end());
    });
}
