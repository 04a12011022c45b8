#pragma once

#include "client/events.h"
#include "mqtt/broker.h"
#include "tools/common/messages.h"
#include "tools/common/sink.h"
#include "util/notify.h"

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace va::mqtt
{

// Lets through so many frames of a stream a second at most, evenly, also when they arrive somewhat
// unevenly; of those in between the newest waits.
class FrameLimiter
{
public:
    struct Frame {
        std::vector<Detection> detections;
        SystemTime time;
        Size size;
    };

    explicit FrameLimiter(double per_second)
        : interval_(
              std::chrono::duration_cast<Elapsed>(std::chrono::duration<double>(1) / per_second))
    {
    }

    void add(Frame frame) { newest_ = std::move(frame); }

    // The frame to be sent now, if there is one.
    std::optional<Frame> next(Elapsed now)
    {
        if (!newest_ || now + interval_ / 2 < due_)
            return std::nullopt;
        due_ = std::max(due_, now) + interval_;
        return std::exchange(newest_, std::nullopt);
    }

private:
    Elapsed interval_;
    Elapsed due_{};
    std::optional<Frame> newest_;
};

// Hands what the daemon sends to the broker: frames as they arrive, all else as events and states.
// Frame size, lines and areas are those that the daemon has in force, by its status; until it has
// answered there are no frames. The retained scene is the last one known, also while the daemon is
// gone; an area's state is there only while the area is known to be in force.
//
// A supervisor is notified: ready with the first pass, whether or not broker and daemon are there,
// which is its status; alive with each pass, at most twice in the interval that it asks for.
class Publisher : public RecordSink
{
public:
    Publisher(const Settings &settings, const Source &source);
    void record(const Record &record) override;
    void connection(const Connection &connection) override;
    bool wants_status() const override { return true; }
    void status(const Moment &now, const DaemonStatus &status) override;
    void verdict(const Moment &now, const Verdict &verdict) override;
    // Throws std::runtime_error when the broker refuses for good.
    void tick(const Moment &now) override;
    Elapsed due() const override { return alive_due_; }
    void report(const Moment &now) override;
    void finish(const Moment &now) override;

private:
    static constexpr char waiting[] = "waiting for the daemon";

    void set_daemon(const char *text, bool is_available);
    void publish_event(const Event &event);
    void publish_area(const Event &event, SystemTime time);
    void publish_frames();
    void set_areas(std::span<const AlarmRule> rules);
    void report_losses(const Broker::Report &broker);
    SystemTime time_of(Elapsed at) const { return now_.time - (now_.at - at); }

    const Settings settings_;
    const Topics topics_;
    Notifier notifier_; // before the broker's thread, for the sake of the environment
    std::shared_ptr<Broker> broker_;
    EventMaker maker_;
    std::map<Stream, FrameLimiter> frames_;

    Moment now_{};
    std::optional<Size> frame_size_; // of the daemon that is here, once it has said it
    std::set<std::string> areas_;    // the topics of those that have a state
    std::uint64_t results_missed_ = 0;
    Losses reported_;
    Elapsed losses_due_{};
    const char *daemon_ = waiting; // for people
    Elapsed alive_due_;
};

} // namespace va::mqtt
