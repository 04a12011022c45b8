#pragma once

#include <chrono>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

// What is planned for a call.
struct CallPlan {
    int error;                      // with which it fails, without effect; 0: it does not
    std::chrono::milliseconds hang; // for which it hangs before
};

// The calls made so far, and what is planned for calls to come.
class Calls
{
public:
    // `function` has static storage.
    void note(const char *function);
    std::vector<std::string> names() const;

    void plan(std::string function, int nth, CallPlan plan);

    // Counts a call of `function` against the plans; what is planned for this one.
    CallPlan planned_for(std::string_view function);

private:
    struct Plan {
        std::string function;
        int calls_left; // the call that makes it 0 is meant
        CallPlan what;
    };

    std::deque<const char *> names_;
    std::vector<Plan> plans_;
};
