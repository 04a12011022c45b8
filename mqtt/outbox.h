#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace va::mqtt
{

struct Message {
    std::string topic;
    std::string payload;
    bool retained = false;
    unsigned expiry = 0; // seconds after which a broker of MQTT 5 drops it; 0: never
};

// What is to reach the broker: events in their order, of those that wait the newest `limit`, and
// no more than so many bytes; and states, of which only the newest of a topic counts. A message is
// here until it is acknowledged: a connection that breaks meanwhile has it sent again. No lock: its
// user has one.
class Outbox
{
public:
    static constexpr std::size_t MAX_BYTES = 4 << 20; // of events

    explicit Outbox(std::size_t limit) : limit_(limit) {}

    void add(Message event); // a retained one changes its topic's state

    // Waits unless it is the state already; behind events of its topic, which would overwrite it.
    // An empty one is forgotten when it is acknowledged.
    void set_state(const std::string &topic, const std::string &payload);
    void forget(const std::string &topic) { states_.erase(topic); } // its state, while none waits

    // The next one to be sent, states first; nothing when all are.
    std::optional<Message> next();
    // What next() returned is on its way under this number.
    void sent(int number);
    // The topic of the message; nothing when the number is of none on its way.
    std::optional<std::string> acknowledge(int number);
    void discard(); // what next() returned: it cannot be sent

    // There is a new connection: what was on its way is to be sent again, and all states.
    void resend();

    std::size_t size() const { return pending_ + states_on_way_ + events_.size(); }
    std::size_t on_way() const { return on_way_.size(); }
    std::uint64_t dropped() const { return dropped_; }

    // Events are numbered from 1: those with a higher number than this; the numbers of the oldest
    // one that is here, or 0, and of the newest one that was added.
    std::vector<Message> events_after(std::uint64_t number) const;
    std::uint64_t oldest_event() const { return events_.empty() ? 0 : events_.front().number; }
    std::uint64_t newest_event() const { return newest_; }
    std::size_t events() const { return events_.size(); }

private:
    struct State {
        std::string payload;
        bool pending = false;
    };
    struct Event {
        std::uint64_t number;
        Message message;
    };
    struct Item {               // of what is sent
        std::string state = {}; // its topic
        std::uint64_t event = 0;
    };

    void mark_pending(State &state);
    void trim();
    void remove_state(const std::string &topic);
    void forget_empty(const std::string &topic);
    bool has_event_of(const std::string &topic) const;
    std::string remove_event(std::uint64_t number);

    std::size_t limit_;
    std::deque<Event> events_;
    std::size_t sent_events_ = 0; // the first so many are on their way
    std::size_t bytes_ = 0;
    std::uint64_t newest_ = 0;
    std::uint64_t dropped_ = 0;
    std::map<std::string, State> states_;
    std::size_t pending_ = 0; // states
    std::size_t states_on_way_ = 0;
    Item next_;
    std::map<int, Item> on_way_;
};

} // namespace va::mqtt
