#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The calls made so far, and the failures planned for calls to come.
class Calls
{
public:
    // `function` has static storage.
    void note(const char *function);
    std::vector<std::string> names() const;

    void plan_failure(std::string function, int nth, int error);

    // Counts a call of `function` against the plans; the error when this call is to fail.
    std::optional<int> planned_failure(std::string_view function);

private:
    struct Plan {
        std::string function;
        int calls_left; // the call that makes it 0 fails
        int error;
    };

    std::deque<const char *> names_;
    std::vector<Plan> plans_;
};
