#include "platform/sim/calls.h"

#include "platform/sim/sim.h"

#include <utility>

void Calls::note(const char *function)
{
    if (names_.size() == SIM_CALLS_KEPT)
        names_.pop_front();
    names_.push_back(function);
}

std::vector<std::string> Calls::names() const
{
    return {names_.begin(), names_.end()};
}

void Calls::plan_failure(std::string function, int nth, int error)
{
    plans_.push_back({std::move(function), nth, error});
}

std::optional<int> Calls::planned_failure(std::string_view function)
{
    std::optional<int> error;
    for (Plan &plan : plans_) {
        if (plan.function == function && --plan.calls_left == 0)
            error = plan.error;
    }
    std::erase_if(plans_, [](const Plan &plan) { return plan.calls_left <= 0; });
    return error;
}
