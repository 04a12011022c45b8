#pragma once

#include "client/events.h"
#include "tools/common/object_ids.h"

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

// What a camera publishes, as JSON, and the topics of a broker under which it does. Places are
// pixels of the video frame, those of shapes ten-thousandths of it. All throw std::bad_alloc.
namespace va
{

using Json = nlohmann::ordered_json;

// On one line; bytes that are no UTF-8 are replaced.
std::string text_of(const Json &json);

// What the camera is called unless it is told.
std::string host_name();

// Names of a camera and its parts.
struct CameraNames {
    std::string prefix; // of all topics
    std::string video_source = "VideoSource0";
    std::string analytics = "Analytics0";
    std::string profile = "Profile0";
};

class Topics
{
public:
    explicit Topics(const CameraNames &names);

    std::string available() const { return prefix_ + "/va/available"; }
    std::string still() const { return prefix_ + "/va/still"; }
    std::string scene() const { return prefix_ + "/va/scene"; }
    std::string lost() const { return prefix_ + "/va/lost"; }
    std::string reconfig() const { return prefix_ + "/va/reconfig"; } // a command, to the camera
    std::string track(ObjectId id) const;
    std::string frames(Stream stream) const;

    // Events by the names that ONVIF gives them.
    std::string line(const AlarmRule &rule) const;
    std::string counter(const AlarmRule &rule) const; // of a line
    std::string area(const AlarmRule &rule) const;
    std::string tamper() const;
    std::string motion() const;
    std::string events() const { return prefix_ + "/onvif-ej/"; } // what all of them begin with

private:
    std::string rule_topic(const char *name, const AlarmRule &rule) const;

    std::string prefix_;
    std::string profile_;
    std::string source_;
    std::string configuration_; // with the source in front
};

// Whether a camera is there, or why not.
struct Availability {
    bool online = false;
    std::optional<SystemTime> since = {}; // when `online` changed, where that is known
    std::string why = {};                 // for people; empty: there is nothing to say
};
std::string available_message(const Availability &availability);

// The objects of a result. The message's transformation maps pixels to ONVIF's frame, which is 2
// wide and 2 high around the origin, y upwards.
struct ObjectFrame {
    struct Object {
        ObjectId id;
        Detection seen;
    };

    Stream stream;
    SystemTime time;
    Size size{}; // of the video; of no account when there are no objects
    std::optional<std::uint32_t> picture = {};
    std::vector<Object> objects = {};
    std::vector<ObjectId> gone = {}; // which will not appear again
};
std::string frame_message(const ObjectFrame &frame);

// `count`: how often it was crossed so far, where that is known.
std::string line_message(const Event &event, std::optional<std::uint64_t> count, SystemTime time,
                         const CameraNames &names, const ObjectIds &ids);
// How often a line was crossed so far, the last time at `time`.
std::string counter_message(const AlarmRule &line, std::uint64_t count, SystemTime time,
                            const CameraNames &names);
// What such a message says; nothing for any other text.
std::optional<std::uint64_t> count_in(const std::string &counter_message);

std::string area_message(const Event &event, SystemTime time, const CameraNames &names,
                         const ObjectIds &ids);
std::string empty_area_message(const AlarmRule &area, SystemTime time, const CameraNames &names);

// Of tampering, of motion.
std::string state_message(bool state, SystemTime time, const CameraNames &names);

// An object that appeared or left; `first` and `last` are when it was first and last seen.
std::string track_message(const Event &event, ObjectId id, SystemTime first, SystemTime last);

// The frame's size, what is marked in it, and the directions that a line's setting can have.
std::string scene_message(const Scene &scene);

// What was lost since the program was started.
struct Losses {
    std::uint64_t frames = 0;  // the broker was away or slow
    std::uint64_t events = 0;  // the broker was away for too many
    std::uint64_t results = 0; // the daemon's own, missing in their numbers
    std::uint64_t refused = 0; // by the broker: events and states
    bool operator==(const Losses &other) const = default;
};
std::string losses_message(const Losses &losses, SystemTime time);

// Any event: "time", "event", and what belongs to it. docs/client.md has the members.
Json event_json(const Event &event, SystemTime time);

} // namespace va
