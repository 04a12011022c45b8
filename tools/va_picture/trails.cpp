#include "tools/va_picture/trails.h"

#include <utility>

namespace va::picture
{

namespace
{

constexpr Elapsed remembered = std::chrono::seconds(2);

Trail::Place middle_of(const Detection &seen)
{
    return {seen.x + seen.width / 2.0, seen.y + seen.height / 2.0};
}

} // namespace

void Trails::take(const std::vector<Detection> &detections, Elapsed at)
{
    for (const Detection &seen : detections) {
        if (seen.kind == Detection::Kind::Moving)
            steps_[{seen.kind, seen.number}].push_back({middle_of(seen), at});
    }
    for (auto &[key, steps] : steps_) {
        while (!steps.empty() && at - steps.front().at > remembered)
            steps.pop_front();
    }
    std::erase_if(steps_, [](const auto &entry) { return entry.second.empty(); });
}

std::vector<Trail> Trails::trails(const std::vector<Detection> &shown, Elapsed until,
                                  Elapsed now) const
{
    std::vector<Trail> all;
    for (const Detection &seen : shown) {
        const auto found = steps_.find({seen.kind, seen.number});
        if (found == steps_.end())
            continue;
        Trail trail{seen.kind, {}};
        for (const Step &step : found->second) {
            if (now - step.at <= remembered && step.at <= until)
                trail.places.push_back(step.place);
        }
        if (trail.places.size() > 1)
            all.push_back(std::move(trail));
    }
    return all;
}

} // namespace va::picture
