#pragma once

#include "client/events.h"
#include "mqtt/broker.h"
#include "mqtt/frames.h"
#include "tools/common/messages.h"
#include "tools/common/sink.h"
#include "util/notify.h"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace va::mqtt
{

// Hands what the daemon sends to the broker: frames as they come, all else as events and states.
// Frame, lines and areas are those that the daemon has in force, which is asked every two seconds.
//
// A supervisor is told: ready with the first pass, whether or not broker and daemon are there,
// which is its status; alive by each pass, not more often than twice in the interval that it asks
// for.
class Publisher : public RecordSink
{
public:
    Publisher(const Settings &settings, const Source &source);
    void record(const Record &record) override;
    void connection(const Connection &connection) override;
    bool wants_status() const override { return true; }
    void status(const Moment &now, const DaemonStatus &status) override;
    void verdict(const Moment &now, const Verdict &verdict) override;
    void
    tick(const Moment &now) override; // throws std::runtime_error when the broker refuses for good
    Elapsed due() const override { return alive_due_; }
    void report(const Moment &now) override;
    void finish(const Moment &now) override;

private:
    static constexpr char waiting[] = "waiting for the daemon";

    void set_daemon(const char *text, bool is_available);
    void take_event(const Event &event);
    void take_frame(const Record &record);
    void send_frames();
    void send_area(const Event &event, SystemTime time);
    void set_areas(std::span<const AlarmRule> rules);
    void tell_losses();
    void tell_supervisor();
    SystemTime time_of(Elapsed at) const { return now_.time - (now_.at - at); }

    const Settings settings_;
    const Topics topics_;
    const bool tells_tamper_;
    Notifier notifier_; // before the broker's thread, for the sake of the environment
    std::shared_ptr<Broker> broker_;
    EventMaker maker_;
    std::map<Stream, Frames> frames_;

    Moment now_{};
    std::optional<Size> frame_; // of the video, once the daemon has said it
    std::string scene_;
    std::set<std::string> areas_; // the topics of those that are in force
    std::uint64_t results_missed_ = 0;
    Losses told_;
    std::optional<Elapsed> losses_told_;
    const char *daemon_ = waiting; // for people
    Elapsed alive_due_;
};

} // namespace va::mqtt
