#pragma once

#include "client/events.h"
#include "tools/common/frame_limiter.h"
#include "tools/common/messages.h"
#include "tools/common/object_ids.h"
#include "tools/common/sink.h"
#include "tools/common/source.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
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

// Makes a camera's messages out of what a RecordSink is told. Frame size, lines and areas are those
// that the daemon has in force, by its status; until it has answered there are no frames. The scene
// is the last one known, also while the daemon is gone; an area's state and a line's counter are
// there only while it is known to be in force. A state is taken back only when the target has one.
// Used by one thread.
class MessageMaker
{
public:
    // At most `rate` frames a second of each stream, 0: none. `target` must outlive it, and is told
    // the states that are known at once.
    MessageMaker(const CameraNames &names, const Source &source, double rate,
                 MessageTarget &target);

    // What the target retains of an earlier run, by topic; empty where that cannot be known.
    // Counters go on from there (by the first call), and states of which this run knows nothing are
    // taken back; a line's counter only when a scene is known without the line. Until it is called
    // no counter is published, but for lines of which expect_states() has known it.
    void earlier_states(const std::map<std::string, std::string> &retained);

    // What the target is still to be told of an earlier run; call it first.
    void expect_states(const std::map<std::string, std::string> &states);

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
    void take_object(const Event &event);
    void take_crossing(const Event &event, SystemTime time);
    void take_area(const Event &event, SystemTime time);
    void add_frame(const Record &record);
    void hand_on_frames();
    void set_rules(const std::vector<AlarmRule> &rules);
    void set_motion();
    void set_counter(const AlarmRule &line, SystemTime time);
    std::optional<std::uint64_t> count_of(const AlarmRule &line) const;
    void set_state(const std::string &topic, const std::string &payload);
    void take_back_old_states();
    SystemTime time_of(Elapsed at) const { return now_.time - (now_.at - at); }

    const CameraNames names_;
    const Topics topics_;
    MessageTarget &target_;
    EventMaker events_;
    std::map<Stream, FrameLimiter> frames_;

    Moment now_;
    Availability availability_;
    std::optional<Size> frame_size_; // of the daemon that is here, once it has said it
    ObjectIds ids_;
    bool moving_ = false;
    std::set<std::string> lasting_; // topics of states that have nothing to do with a scene
    std::map<std::string, AlarmRule> rules_; // in force, by the topics of their states
    bool scene_is_known_ = false;
    std::set<std::string> known_counts_; // the topics of those that go on from what was there
    std::map<std::string, std::uint64_t> counts_; // of each possible line, by their topics
    std::set<std::string> retained_;              // topics below onvif-ej, by the target
    std::uint64_t results_missed_ = 0;
};

} // namespace va
