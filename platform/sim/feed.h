#pragma once

#include "platform/sim/feed_lines.h"
#include "util/guarded.h"

#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace va::sim
{

class FeedInput;

// Observations that another program writes, as described in docs/scene.md. A thread of its own
// reads them while the source is started; it takes no lock but this object's.
class Feed : public Source
{
public:
    // `wake` is called by that thread when there is something to take. Places are in `frame`.
    Feed(std::string path, Size frame, void (*wake)());
    ~Feed() override;

    void start() override;
    void stop() override;

    std::optional<SeenObjects> take_objects() override;
    std::optional<std::vector<SimFaceEntry>> take_faces() override;
    std::optional<AlarmWords> take_alarm() override;

    // While pictures with such observations come one after another, the next is expected soon after
    // the last.
    DueTimes due() const override;

private:
    // The newest that nobody has taken yet.
    template <class Seen>
    struct Kept {
        void add(Seen seen);
        Moment due() const;

        std::deque<Seen> all;
        Moment expected = Moment::min(); // the next, at the latest
    };

    void read();
    void keep(FeedPicture picture);

    std::string path_;
    Size frame_;
    void (*wake_)();
    std::unique_ptr<FeedInput> input_; // while it is started
    std::thread thread_;

    mutable std::mutex mutex_;
    Kept<SeenObjects> objects_ VA_GUARDED_BY(mutex_);
    Kept<std::vector<SimFaceEntry>> faces_ VA_GUARDED_BY(mutex_);
    Kept<AlarmWords> alarms_ VA_GUARDED_BY(mutex_);
};

} // namespace va::sim
