#pragma once

#include "client/events.h"
#include "tools/common/messages.h"
#include "tools/common/sink.h"
#include "tools/common/source.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace va
{

// Where a camera's messages go: a broker, a file.
class MessageTarget
{
public:
    MessageTarget() = default;
    MessageTarget(const MessageTarget &) = delete;
    MessageTarget &operator=(const MessageTarget &) = delete;
    virtual ~MessageTarget() = default;

    // A retained one changes a state.
    virtual void event(const std::string &topic, const std::string &payload, bool retained) = 0;
    virtual void state(const std::string &topic, const std::string &payload) = 0; // "": it has none
    // `picture`: the one in which its objects were seen, where that is known. Returns false when
    // the frame was dropped.
    virtual bool frame(const std::string &topic, const std::string &payload,
                       std::optional<std::uint32_t> picture) = 0;
};

// Lets through so many frames of a stream a second at most, evenly, also when they arrive somewhat
// unevenly; of those in between the newest waits.
class FrameLimiter
{
public:
    struct Frame {
        std::vector<Detection> detections;
        SystemTime time;
        Size size;
        std::optional<std::uint32_t> picture;
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

// Makes a camera's messages out of what a RecordSink is told. Frame size, lines and areas are those
// that the daemon has in force, by its status; until it has answered there are no frames. The scene
// is the last one known, also while the daemon is gone; an area's state and a line's counter are
// there only while it is known to be in force. Used by one thread.
class MessageMaker
{
public:
    // At most `rate` frames a second of each stream, 0: none. `target` must outlive it, and is told
    // the states that are known at once.
    MessageMaker(const CameraNames &names, const Source &source, double rate,
                 MessageTarget &target);

    // What the target retains of an earlier run, by topic; empty where that cannot be known.
    // Counters go on from there, and what is no longer in force is taken back. Until it is called
    // no counter is published.
    void earlier_states(const std::map<std::string, std::string> &retained);

    void record(const Record &record);
    void connection(const Connection &connection);
    void status(const Moment &now, const Scene &scene);
    void verdict(const Moment &now, const Verdict &verdict);
    void tick(const Moment &now);
    void finish(const Moment &now); // there will be no more records

    // From now on it is offline, since the program has ended.
    void end();

    const Topics &topics() const { return topics_; }
    const Availability &availability() const { return availability_; }
    std::uint64_t results_missed() const { return results_missed_; } // of the daemon, so far

private:
    void set_available(bool online, const std::string &why);
    void take_event(const Event &event);
    void take_crossing(const Event &event, SystemTime time);
    void take_area(const Event &event, SystemTime time);
    void hand_on_frames();
    void set_rules(const std::vector<AlarmRule> &rules);
    SystemTime time_of(Elapsed at) const { return now_.time - (now_.at - at); }

    const CameraNames names_;
    const Topics topics_;
    MessageTarget &target_;
    EventMaker events_;
    std::map<Stream, FrameLimiter> frames_;

    Moment now_;
    Availability availability_;
    std::optional<Size> frame_size_;    // of the daemon that is here, once it has said it
    std::set<std::string> rule_topics_; // those of the lines and areas that have a state
    std::map<std::string, std::uint64_t> crossings_; // of lines, by their counters' topics
    std::uint64_t results_missed_ = 0;
};

} // namespace va
