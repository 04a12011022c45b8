#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>

namespace va::mqtt
{

// What waits to be sent: events in their order, the newest `keep` of them; and states, of which the
// newest of a topic counts. No lock: its user has one.
class Outbox
{
public:
    struct Letter {
        std::string topic;
        std::string payload;
        bool retained = false;
    };

    explicit Outbox(std::size_t keep) : keep_(keep) {}

    void add(Letter event); // one that is retained changes its topic's state
    void set(const std::string &topic, std::string payload); // waits unless it is the state
    void renew();                                            // all states wait again

    bool is_empty() const { return pending_ == 0 && events_.empty(); }
    std::size_t size() const { return pending_ + events_.size(); }
    std::uint64_t dropped() const { return dropped_; }

    // The next to be sent, states first; there must be one.
    Letter take();

private:
    struct State {
        std::string payload;
        bool pending = false;
    };

    void request(State &state);

    std::size_t keep_;
    std::deque<Letter> events_;
    std::map<std::string, State> states_;
    std::size_t pending_ = 0; // states that wait
    std::uint64_t dropped_ = 0;
};

} // namespace va::mqtt
