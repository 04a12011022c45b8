#pragma once

#include "va/health.h"
#include "va/settings.h"

#include <type_traits>

// What the daemon can tell of itself, in its status and to a supervisor.
struct VaReport {
    VaHealth health;
    VaSettings settings;
};

// tell(context->report, &VaHealth::opens, module): null, nobody is told.
template <class... Args>
void tell(VaReport *report, void (VaHealth::*what)(Args...), std::type_identity_t<Args>... args)
{
    if (report)
        (report->health.*what)(args...);
}
