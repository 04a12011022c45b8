#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>

namespace va::mqtt
{

struct Message {
    std::string topic;
    std::string payload;
    bool retained = false;
};

// What waits to be sent: events in their order, the newest `limit` of them; and states, of which
// only the newest of a topic counts. No lock: its user has one.
class Outbox
{
public:
    explicit Outbox(std::size_t limit) : limit_(limit) {}

    void add(Message event); // a retained one changes its topic's state

    // Waits unless it is the state already; behind events of its topic, which would overwrite it.
    void set_state(const std::string &topic, const std::string &payload);
    void resend_states();
    void forget(const std::string &topic) { states_.erase(topic); } // its state, while none waits

    bool is_empty() const { return size() == 0; }
    std::size_t size() const { return pending_ + events_.size(); }
    std::uint64_t dropped() const { return dropped_; }

    // The next one to be sent, states first; there must be one.
    Message pop();

private:
    struct State {
        std::string payload;
        bool pending = false;
    };

    void mark_pending(State &state);

    std::size_t limit_;
    std::deque<Message> events_;
    std::map<std::string, State> states_;
    std::size_t pending_ = 0; // states
    std::uint64_t dropped_ = 0;
};

} // namespace va::mqtt
