#pragma once

#include "tools/common/entries.h"
#include "tools/common/record.h"
#include "tools/common/verdict.h"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <tuple>
#include <vector>

// Makes events out of records: what began and what ended, in place of what is. Without a clock of
// its own: time is what the records and pass() say.

// The line or area that a bit of the alarm masks stands for.
struct AlarmRule {
    enum class Source { Line, Area };

    Source source;
    int event;                 // code: which of a record's masks
    int bit;                   // of that mask
    std::optional<int> number; // in the settings' keys, where they are known
};

// What the names of lines or of areas begin with, before the number.
const char *name_beginning(AlarmRule::Source source);

// "CrossLine.C0", or "event 1 bit 0" where the settings are not known.
std::string name_of(const AlarmRule &rule);

struct Event {
    enum class Kind {
        DaemonHere,   // the first of its streams is connected
        DaemonGone,   // the last of its streams is lost
        DaemonUnwell, // it is here, but nothing can come, or it cannot write its status
        DaemonWell,   // again
        ObjectAppeared,
        ObjectLeft,
        LineCrossed,
        AreaEntered,
        AreaLeft,
        TamperBegan,
        TamperEnded,
        RecordsMissed,
    };

    Kind kind;
    // When it was known: of the record or of the pass that told it; never runs backwards.
    Elapsed at;

    // Of what appeared and left, entered and left, began and ended: its first record and its last
    // one so far. An end is known only a rest later than that.
    Elapsed first{};
    Elapsed last{};
    bool cut_off = false; // of an end: the stream that showed it was lost

    Sighting from{}; // of an object: its first place and its last one so far
    Sighting to{};
    AlarmRule rule{};         // of a line or an area
    std::uint32_t missed = 0; // results of object detection that did not come, 1 or more
    std::string why = {};     // of a daemon that is not well, for people
};

// How long a thing must not be seen to have ended, so that one that flutters is one.
struct EventRests {
    Elapsed object = std::chrono::seconds(1); // a result comes four times a second at the slowest
    Elapsed line = std::chrono::milliseconds(500);
    Elapsed area = std::chrono::seconds(1);
    Elapsed tamper = std::chrono::seconds(2);
};

// Used by one thread; feed it in the order of time. Objects and faces are known by kind and number;
// where the layout of entries is not known there are none, and no missed records. Throws
// std::bad_alloc and what the sink throws.
class EventMaker
{
public:
    using Sink = std::function<void(const Event &event)>;

    explicit EventMaker(Sink sink, EventRests rests = {});

    // What the bits of the alarm masks mean; what has begun keeps the meaning it had. Empty: not
    // known, as at the beginning.
    void set_rules(std::span<const AlarmRule> rules);

    void take(const Record &record);

    // Whether a stream is connected; may repeat what is known. With a stream all ends that it
    // showed.
    void set_connected(const StreamKind &kind, bool connected, Elapsed now);

    // What was found when the daemon was asked, since nothing came. When nothing can come all ends
    // that is still there.
    void set_verdict(const Verdict &verdict, Elapsed now);

    // Tells what has ended for lack of records. Call it a few times a second.
    void pass(Elapsed now);

private:
    // Of what is there as long as records show it: the stream, then kind and number of an object,
    // or event code and bit of an alarm; zeros for the tamper alarm.
    using Key = std::tuple<std::size_t, std::uint32_t, std::uint32_t>;

    void take_number(std::uint32_t number, Elapsed at);
    void take_sightings(std::size_t stream, const std::vector<Sighting> &sightings, Elapsed at);
    void take_alarms(std::size_t stream, const Words &masks, Elapsed at);
    void show(const Key &key, const Event &beginning);
    AlarmRule rule_of(int event, int bit) const;
    template <class Ends>
    void end_where(Ends ends, Elapsed now, bool cut_off);

    Sink sink_;
    EventRests rests_;
    std::vector<AlarmRule> rules_;
    std::array<bool, STREAM_COUNT> connected_{};
    std::map<Key, Event> there_;          // the beginnings, kept up to date
    std::optional<std::uint32_t> result_; // number of the last one
};
