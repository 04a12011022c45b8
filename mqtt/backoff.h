#pragma once

#include <algorithm>
#include <chrono>
#include <random>

namespace va::mqtt
{

// How long to wait before the next attempt to connect: twice as long each time, from a second to
// half a minute, less a random part, so that a thousand cameras do not reconnect in the same
// moment. Only a connection that lasted a minute begins anew: a broker that takes a connection and
// closes it again is not asked more often than one that takes none.
class Backoff
{
public:
    using Time = std::chrono::milliseconds;

    static constexpr Time FIRST = std::chrono::seconds(1);
    static constexpr Time LAST = std::chrono::seconds(30);
    static constexpr Time LASTING = std::chrono::minutes(1);
    static constexpr int FLAPPING = 3; // short connections

    // The first `quick` waits do not grow.
    explicit Backoff(int quick) : quick_(quick) {}

    // After an attempt that was connected for so long; 0: never.
    Time after(Time connected)
    {
        if (connected >= LASTING)
            *this = Backoff(quick_);
        else if (connected > Time::zero())
            ++short_ones_;
        std::uniform_int_distribution<Time::rep> part(longest_.count() / 2, longest_.count());
        if (!is_quick())
            longest_ = std::min(longest_ * 2, LAST);
        ++attempts_;
        return Time(part(random_));
    }

    bool is_quick() const { return attempts_ < quick_; }

    // Since the last one that lasted, several connections did not: so it is when two clients with
    // one id throw each other off.
    bool is_flapping() const { return short_ones_ >= FLAPPING; }

private:
    int quick_;
    Time longest_ = FIRST;
    int attempts_ = 0;
    int short_ones_ = 0;
    std::minstd_rand random_{std::random_device{}()};
};

} // namespace va::mqtt
