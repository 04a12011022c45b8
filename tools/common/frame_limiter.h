#pragma once

#include "tools/common/messages.h"
#include "tools/common/object_ids.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>

namespace va
{

// Lets through so many frames of a stream a second at most, evenly, also when they arrive somewhat
// unevenly; of those in between the newest waits. What a frame that was sent showed and what is
// gone is deleted in the next one; when nothing is left that is an empty one. Both stay due until a
// frame was sent.
class FrameLimiter
{
public:
    FrameLimiter(Stream stream, double per_second);

    void add(ObjectFrame frame) { newest_ = std::move(frame); }

    // The frame to be sent now, if there is one; tell whether it was.
    std::optional<ObjectFrame> next(const Moment &now, const ObjectIds &ids);
    void was_sent(const ObjectFrame &frame);
    void was_dropped(Elapsed now);

private:
    // Of an empty frame while none can be sent: it is no new one each time.
    static constexpr std::chrono::seconds shortest_pause_{1};
    static constexpr std::chrono::seconds longest_pause_{32};

    Stream stream_;
    Elapsed interval_;
    Elapsed due_{};
    std::optional<ObjectFrame> newest_;
    std::map<ObjectId, std::uint32_t> shown_; // not yet deleted; with the chip's numbers
    bool is_empty_ = true;                    // the last one that was sent
    Elapsed empty_due_{};
    Elapsed pause_{shortest_pause_};
};

} // namespace va
