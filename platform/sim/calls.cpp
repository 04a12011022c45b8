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

void Calls::plan(std::string function, int nth, CallPlan plan)
{
    plans_.push_back({std::move(function), nth, plan});
}

CallPlan Calls::planned_for(std::string_view function)
{
    CallPlan planned{};
    for (Plan &plan : plans_) {
        if (plan.function != function || --plan.calls_left != 0)
            continue;
        if (plan.what.error != 0)
            planned.error = plan.what.error;
        planned.hang += plan.what.hang;
    }
    std::erase_if(plans_, [](const Plan &plan) { return plan.calls_left <= 0; });
    return planned;
}
