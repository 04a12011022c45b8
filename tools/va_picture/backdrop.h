#pragma once

#include "tools/common/still_file.h"
#include "tools/va_picture/message_file.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace va::picture
{

// Hands stills of the video on to the file, and the frames that it is given together with the
// stills of their pictures, so that the objects neither run ahead nor lag behind: first the still,
// then its frame. A still waits for its frame at most 150 ms. While stills do not come, or do not
// say of which picture they are, frames are handed on at once; so is all else.
class Backdrop : public MessageTarget
{
public:
    // `topic` is that of the stills in `path`. The file must outlive it.
    Backdrop(std::string path, std::string topic, MessageFile &file);

    void event(const std::string &topic, const std::string &payload, bool retained) override;
    void state(const std::string &topic, const std::string &payload) override;
    bool frame(const std::string &topic, const std::string &payload,
               std::optional<std::uint32_t> picture) override;

    // Looks for a new still, and hands on what is due.
    void look(Elapsed now);

    // When to look next.
    Elapsed due() const { return stills_.due(); }

private:
    struct Frame {
        std::string topic;
        std::string payload;
        std::uint32_t picture;
    };
    struct Waiting {
        Still still;
        Elapsed at;
    };

    bool may_be_shown(const Waiting &waiting, Elapsed now) const;
    void show(const Still &still);
    void hand_on_frame();

    StillFile stills_;
    std::string topic_;
    MessageFile &file_;
    bool holds_frames_ = false;           // as the newest still says of which picture it is
    std::deque<Waiting> waiting_;         // for their frames
    std::deque<Frame> frames_;            // for their stills
    std::optional<std::uint32_t> newest_; // picture of the newest frame
};

} // namespace va::picture
