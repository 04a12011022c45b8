#pragma once

#include "va/module.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

// The analytics modules as the daemon runs them: a row each.

struct VaDriver {
    VaModule module;
    const int *selected; // va_parse_arg()'s
    std::int32_t VaContext::*enabled;
    int (*getConf)(VaContext *);
    int (*init)(VaContext *);
    Poll (*poll)(VaContext *);        // null: has no results
    int (*updateConfig)(VaContext *); // null: follows no change of the settings
    int (*cancel)(VaContext *);       // null like `poll`
    int (*stop)();                    // the library's, like the next
    int (*close)();
};

// In the order of everything but a pass: settings read, opened, changed, cancelled, stopped and
// closed.
extern const std::array<VaDriver, std::size(va_modules)> va_drivers;

inline const VaDriver &driver_of(VaModule module)
{
    return va_drivers[static_cast<std::size_t>(module)];
}

// In the order of a pass.
inline constexpr VaModule va_polled[] = {VaModule::od, VaModule::ta, VaModule::fd};
