#include "tools/common/frame_limiter.h"

#include <algorithm>
#include <utility>

namespace va
{

FrameLimiter::FrameLimiter(Stream stream, double per_second)
    : stream_(stream),
      interval_(std::chrono::duration_cast<Elapsed>(std::chrono::duration<double>(1) / per_second))
{
}

std::optional<ObjectFrame> FrameLimiter::next(const Moment &now, const ObjectIds &ids)
{
    if (now.at + interval_ / 2 < due_)
        return std::nullopt;
    if (!newest_) {
        const bool all_gone = !shown_.empty() && !ids.any(stream_);
        if (!all_gone || now.at < empty_due_)
            return std::nullopt;
        newest_ = {.stream = stream_, .time = now.time};
    }
    ObjectFrame frame = *std::exchange(newest_, std::nullopt);
    std::erase_if(frame.objects, [&](const ObjectFrame::Object &object) { // it may have waited long
        return !ids.is_here(stream_, object.seen.number, object.id);
    });
    for (const auto &[id, number] : shown_) {
        if (!ids.is_here(stream_, number, id))
            frame.gone.push_back(id);
    }
    if (is_empty_ && frame.objects.empty() && frame.gone.empty())
        return std::nullopt;
    due_ = std::max(due_, now.at) + interval_;
    return frame;
}

void FrameLimiter::was_sent(const ObjectFrame &frame)
{
    for (const ObjectId id : frame.gone)
        shown_.erase(id);
    for (const ObjectFrame::Object &object : frame.objects)
        shown_.insert_or_assign(object.id, object.seen.number);
    is_empty_ = frame.objects.empty();
    empty_due_ = {};
    pause_ = shortest_pause_;
}

void FrameLimiter::was_dropped(Elapsed now)
{
    empty_due_ = now + pause_;
    pause_ = std::min<Elapsed>(2 * pause_, longest_pause_);
}

} // namespace va
