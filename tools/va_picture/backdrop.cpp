#include "tools/va_picture/backdrop.h"

#include <utility>

namespace va::picture
{

namespace
{

using std::chrono::milliseconds;

constexpr milliseconds poll_interval{20};
constexpr milliseconds patience{150}; // with a still whose objects have not come: it may have none
constexpr milliseconds kept{2000};    // a still without another
constexpr std::size_t max_frames = 40;

// Numbers of pictures may wrap around.
bool is_before(std::uint32_t picture, std::uint32_t other)
{
    return static_cast<std::int32_t>(picture - other) < 0;
}

} // namespace

Backdrop::Backdrop(std::string path, std::string topic, MessageFile &file)
    : stills_(std::move(path), {.poll = poll_interval, .interval = poll_interval, .kept = kept}),
      topic_(std::move(topic)),
      file_(file)
{
}

void Backdrop::event(const std::string &topic, const std::string &payload, bool retained)
{
    file_.event(topic, payload, retained);
}

void Backdrop::state(const std::string &topic, const std::string &payload)
{
    file_.state(topic, payload);
}

bool Backdrop::frame(const std::string &topic, const std::string &payload,
                     std::optional<std::uint32_t> picture)
{
    if (picture && newest_ && is_before(*picture, *newest_)) {
        while (!frames_.empty()) // whose stills do not come: the pictures are numbered anew
            hand_on_frame();
    }
    if (picture)
        newest_ = picture;
    if (!picture || !holds_frames_) {
        while (!frames_.empty() && frames_.front().topic == topic) // this empty one is behind them
            hand_on_frame();
        return file_.frame(topic, payload, picture);
    }
    frames_.push_back({topic, payload, *picture});
    if (frames_.size() > max_frames) // whose stills are of much earlier pictures
        hand_on_frame();
    return true;
}

void Backdrop::look(Elapsed now)
{
    if (auto still = stills_.look(now)) {
        holds_frames_ = still->picture.has_value();
        waiting_.push_back({std::move(*still), now});
    }
    while (!waiting_.empty() && may_be_shown(waiting_.front(), now)) {
        show(waiting_.front().still);
        waiting_.pop_front();
    }
}

// Objects of its picture have come, or of a later one, or there are none.
bool Backdrop::may_be_shown(const Waiting &waiting, Elapsed now) const
{
    const auto picture = waiting.still.picture;
    return !picture || now - waiting.at >= patience || (newest_ && !is_before(*newest_, *picture));
}

void Backdrop::show(const Still &still)
{
    while (!frames_.empty() &&
           (!still.picture || is_before(frames_.front().picture, *still.picture)))
        hand_on_frame();
    file_.still(topic_, still.jpeg);
    while (!frames_.empty() && frames_.front().picture == still.picture)
        hand_on_frame();
}

void Backdrop::hand_on_frame()
{
    const Frame frame = std::move(frames_.front());
    frames_.pop_front();
    file_.frame(frame.topic, frame.payload, frame.picture);
}

} // namespace va::picture
