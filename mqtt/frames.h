#pragma once

#include "tools/common/messages.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace va::mqtt
{

// The frames of a stream, so many a second at most and evenly, also when they come somewhat
// unevenly; of those between the newest waits.
class Frames
{
public:
    explicit Frames(double per_second)
        : interval_(
              std::chrono::duration_cast<Elapsed>(std::chrono::duration<double>(1) / per_second))
    {
    }

    void take(std::vector<Detection> detections, SystemTime time)
    {
        newest_ = std::move(detections);
        time_ = time;
        waits_ = true;
    }

    // Calls `send` with the detections and their time when it is time for some.
    template <class Send>
    void pass(Elapsed now, Send send)
    {
        if (!waits_ || now + interval_ / 2 < due_)
            return;
        waits_ = false;
        due_ = std::max(due_, now) + interval_;
        send(newest_, time_);
    }

private:
    Elapsed interval_;
    Elapsed due_{};
    std::vector<Detection> newest_;
    SystemTime time_;
    bool waits_ = false;
};

} // namespace va::mqtt
