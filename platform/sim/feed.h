#pragma once

#include "platform/sim/feed_input.h"
#include "platform/sim/feed_lines.h"
#include "platform/sim/frame.h"
#include "platform/sim/source.h"
#include "util/guarded.h"

#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

// Observations that another program writes, as docs/scene.md tells. A thread of its own reads them
// while the source is started; it takes no lock but this object's.
class Feed : public Source
{
public:
    // `wake` is called by that thread when there is something to take. Places are in `frame`.
    Feed(std::string path, Size frame, void (*wake)());
    ~Feed() override { end_reading(); }

    void start() override;
    void stop() override { end_reading(); }

    std::optional<SeenObjects> take_objects() override;
    std::optional<std::vector<SimFaceEntry>> take_faces() override;
    std::optional<AlarmWords> take_alarm() override;

    // While pictures with such observations come one after another, the next is expected soon after
    // the last.
    Moment objects_due() const override;
    Moment faces_due() const override;
    Moment alarm_due() const override;

private:
    // What nobody has taken yet: the newest.
    template <class Seen>
    struct Kept {
        void add(Seen seen);
        std::optional<Seen> take();
        Moment due() const;

        std::deque<Seen> all;
        Moment expected = Moment::min(); // the next, at the latest
    };

    void end_reading();
    void read();
    void keep(FeedPicture picture);

    std::string path_;
    Size frame_;
    void (*wake_)();
    std::optional<FeedInput> input_; // while it is started
    std::thread thread_;

    mutable std::mutex mutex_;
    Kept<SeenObjects> objects_ VA_GUARDED_BY(mutex_);
    Kept<std::vector<SimFaceEntry>> faces_ VA_GUARDED_BY(mutex_);
    Kept<AlarmWords> alarms_ VA_GUARDED_BY(mutex_);
};
