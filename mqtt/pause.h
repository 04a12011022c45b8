#pragma once

#include <algorithm>
#include <chrono>
#include <random>

namespace va::mqtt
{

// How long to wait before the next attempt: twice as long each time, from a second to half a
// minute, less a random part, so that a thousand cameras do not come back in the same moment.
class Pause
{
public:
    void reset() { longest_ = first; }

    std::chrono::milliseconds next()
    {
        std::uniform_int_distribution<std::chrono::milliseconds::rep> part(longest_.count() / 2,
                                                                           longest_.count());
        longest_ = std::min(longest_ * 2, last);
        return std::chrono::milliseconds(part(random_));
    }

private:
    static constexpr std::chrono::milliseconds first{1000};
    static constexpr std::chrono::milliseconds last{30000};

    std::chrono::milliseconds longest_ = first;
    std::minstd_rand random_{std::random_device{}()};
};

} // namespace va::mqtt
