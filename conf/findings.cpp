#include "conf/findings.h"

#include <iterator>
#include <new>
#include <string_view>

namespace
{

thread_local ConfFindings *collected = nullptr;

} // namespace

ConfFindings::Collector::Collector(ConfFindings &findings)
{
    collected = &findings;
}

ConfFindings::Collector::~Collector()
{
    collected = nullptr;
}

ConfReport::ConfReport() : findings_(collected) {}

template <class Change>
void ConfReport::change(Change change)
{
    if (!findings_)
        return;
    try {
        change(*findings_);
    } catch (const std::bad_alloc &) {
        findings_->is_complete = false;
    }
}

void ConfReport::read(const char *key, const char *value, const char *default_text,
                      const char *remark)
{
    change([=](ConfFindings &findings) {
        ConfFindings::Setting &setting = findings.settings[key];
        setting.value.assign(value).append(remark);
        setting.is_default = std::string_view(value) == default_text;
        setting.rejected.clear();
    });
}

void ConfReport::reject(const char *beginning, const char *why)
{
    change([=](ConfFindings &findings) {
        auto &settings = findings.settings;
        auto setting = settings.lower_bound(beginning);
        while (setting != settings.end() && setting->first.starts_with(beginning)) {
            auto &[value, is_default, rejected, unusable] = setting->second;
            if (rejected.empty())
                rejected = why;
            const bool forget = is_default && setting->first != beginning;
            setting = forget ? settings.erase(setting) : std::next(setting);
        }
    });
}

void ConfReport::use(const char *key, const char *why_not)
{
    change([=](ConfFindings &findings) {
        const auto setting = findings.settings.find(key);
        if (setting != findings.settings.end())
            setting->second.unusable = why_not ? why_not : "";
    });
}

void ConfReport::filter(int number, const char *name, std::int32_t event, int bit)
{
    change([=](ConfFindings &findings) { findings.filters[number] = {name, event, bit}; });
}

void ConfReport::filter_count(int count)
{
    change([=](ConfFindings &findings) {
        findings.filters.erase(findings.filters.lower_bound(count), findings.filters.end());
    });
}
