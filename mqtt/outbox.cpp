#include "mqtt/outbox.h"

#include <algorithm>
#include <utility>

namespace va::mqtt
{

void Outbox::add(Letter event)
{
    if (event.retained)
        states_[event.topic].payload = event.payload;
    events_.push_back(std::move(event));
    if (events_.size() <= keep_)
        return;
    if (events_.front().retained)
        request(states_[events_.front().topic]); // which may have been its last change
    events_.pop_front();
    ++dropped_;
}

void Outbox::set(const std::string &topic, std::string payload)
{
    const auto [entry, is_new] = states_.try_emplace(topic);
    State &state = entry->second;
    if (!is_new && state.payload == payload)
        return;
    state.payload = std::move(payload);
    request(state);
}

void Outbox::renew()
{
    for (auto &[topic, state] : states_)
        request(state);
}

Outbox::Letter Outbox::take()
{
    if (pending_ > 0) {
        const auto found =
            std::ranges::find_if(states_, [](const auto &entry) { return entry.second.pending; });
        found->second.pending = false;
        --pending_;
        return {found->first, found->second.payload, true};
    }
    Letter letter = std::move(events_.front());
    events_.pop_front();
    return letter;
}

void Outbox::request(State &state)
{
    pending_ += state.pending ? 0 : 1;
    state.pending = true;
}

} // namespace va::mqtt
