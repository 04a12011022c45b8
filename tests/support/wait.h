#pragma once

#include <chrono>
#include <thread>

// Polls until `condition` holds; false when it does not within the bound, which is generous: it
// only ends a test that has failed.
template <class Condition>
bool wait_until(Condition condition, std::chrono::seconds bound = std::chrono::seconds(20))
{
    const auto end = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
