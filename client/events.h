#pragma once

#include "client/shapes.h"
#include "client/verdict.h"

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

// Makes events out of records: what began and what ended, in the place of what is. Without a clock
// of its own: time is what the records and pass() say.
namespace va
{

// An object that crossed a line, or is inside an area.
struct Participant {
    Detection::Kind kind;
    std::uint32_t number;
    Crossing side; // of a line: ToLeft or ToRight; of an area Unknown
};

struct Event {
    enum class Kind {
        DaemonHere,   // the first of its streams is connected
        DaemonGone,   // the last of its streams is lost
        DaemonUnwell, // it is here, but can send no results, or cannot write its status
        DaemonWell,   // again
        ObjectAppeared,
        ObjectLeft,
        LineCrossed,
        AreaEntered,
        AreaLeft,
        TamperBegan,
        TamperEnded,
        ResultsMissed,
    };

    Kind kind;
    // When it was known: of the record or of the pass that showed it; never runs backwards.
    Elapsed at;

    // Of what appeared and left, was crossed, entered and left, began and ended: its first record
    // and its last one so far. An end is known only a timeout later than that.
    Elapsed first{};
    Elapsed last{};
    bool cut_off = false; // of an end: the stream that showed it was lost

    Detection from{}; // of an object: its first place and its last one so far
    Detection to{};
    AlarmRule rule{};                        // of a line or an area
    std::vector<Participant> participants{}; // of what was crossed or entered, as far as known
    std::uint64_t count = 0;                 // of a line: how often it was crossed so far
    std::uint32_t missed = 0;                // results of object detection, 1 or more
    std::string why = {};                    // of a daemon that is not well, for people
};

// "moving 7 left after 8.0 s, from 160,650 to 1790,500"; places are the centres of boxes, pixels.
std::string event_text(const Event &event);

// From its first record to its last one.
double seconds_of(const Event &event);

// How long a thing must not be seen to have ended, so that one that flickers is one.
struct EventTimeouts {
    Elapsed object = std::chrono::seconds(1); // there are at least four results a second
    Elapsed line = std::chrono::milliseconds(500);
    Elapsed area = std::chrono::seconds(1);
    Elapsed tamper = std::chrono::seconds(2);
};

// Where objects were in the results of the last second.
class RecentResults
{
public:
    void add(std::vector<Detection> objects, Elapsed at);
    void clear() { results_.clear(); }
    bool any_since(Elapsed at) const { return !results_.empty() && results_.back().at >= at; }

    // By the first result from `since` on that shows any: who crossed the line to a side to which
    // it alarms, between two results at most 150 ms apart; who is inside the area.
    // Objects in no-detection areas are excluded; those that the size limits of a line or an area
    // exclude are not.
    std::vector<Participant> participants(const Shape &shape, const Scene &scene,
                                          Elapsed since) const;

private:
    struct Result {
        Elapsed at;
        std::vector<Detection> objects;
    };

    std::deque<Result> results_;
};

// Used by one thread; feed it in the order of time. Objects and faces are known by kind and number;
// where the layout of entries is not known there are none, no participants and no missed results.
// Throws std::bad_alloc and what the sink throws.
class EventMaker
{
public:
    using Sink = std::function<void(const Event &event)>;

    explicit EventMaker(Sink sink, EventTimeouts timeouts = {});

    // What the bits of the alarm masks mean and where lines and areas are; what has begun keeps the
    // meaning it had. Nothing: not known, as at the beginning and after each start of a daemon.
    void set_scene(std::optional<Scene> scene) { scene_ = std::move(scene); }

    // Each daemon that connects will be asked for its scene: alarms wait for it up to a second.
    void expect_scene() { expects_scene_ = true; }

    void take(const Record &record);

    // Whether a stream is connected; may repeat what is known. With a stream all ends that it
    // showed.
    void set_connected(Stream stream, bool connected, Elapsed now);

    // What a silent daemon turned out to be. When it can send no results, all that is active ends.
    void set_verdict(const Verdict &verdict, Elapsed now);

    // Reports what has ended for lack of records. Call it a few times a second.
    void pass(Elapsed now);

    // There will be no more records: reports what still waits for its participants.
    void finish(Elapsed now);

private:
    // Of what is active as long as records show it: the stream, then kind and number of an object,
    // or event code and bit of an alarm; zeros for the tamper alarm.
    using Key = std::tuple<Stream, std::uint32_t, std::uint32_t>;
    struct Active {
        Event event; // the beginning, kept up to date
        bool reported = false;
        std::vector<Participant> earlier{}; // of a line: who was reported before this alarm
    };

    void take_number(std::uint32_t number, Elapsed at);
    std::vector<Detection> take_detections(const Record &record); // each once
    void take_alarms(const Record &record);
    void show(const Key &key, const Event &beginning);
    void report(Active &active, Elapsed now);
    void report_known(Elapsed now);
    bool is_known(Active &active, Elapsed now) const;
    AlarmRule rule_of(Alarm alarm) const;
    template <class Ends>
    void end_where(Ends ends, Elapsed now, bool cut_off);

    Sink sink_;
    EventTimeouts timeouts_;
    std::optional<Scene> scene_;
    bool expects_scene_ = false;
    Elapsed scene_timeout_{};
    std::array<bool, STREAM_COUNT> connected_{};
    std::map<Key, Active> active_;
    std::map<std::string, std::uint64_t> crossings_; // by the names of lines
    RecentResults results_;
    std::optional<std::uint32_t> result_; // number of the last one
};

} // namespace va
