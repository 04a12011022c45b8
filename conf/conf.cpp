#include "conf/conf.h"

#include <algorithm>

#include <strings.h>

int isEnabled(const char *text)
{
    static constexpr const char *words[] = {"Enabled", "Enable", "yes", "on", "1"};
    return std::ranges::any_of(words,
                               [=](const char *word) { return strcasecmp(text, word) == 0; });
}

int int_chk_range(std::int32_t value, std::int32_t min, std::int32_t max)
{
    return min <= value && value <= max;
}
