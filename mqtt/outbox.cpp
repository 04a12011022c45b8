#include "mqtt/outbox.h"

#include <algorithm>
#include <utility>

namespace va::mqtt
{

void Outbox::add(Message event)
{
    if (event.retained)
        states_[event.topic].payload = event.payload;
    events_.push_back(std::move(event));
    if (events_.size() <= limit_)
        return;
    if (events_.front().retained)
        mark_pending(states_[events_.front().topic]); // this may have been its last change
    events_.pop_front();
    ++dropped_;
}

void Outbox::set_state(const std::string &topic, const std::string &payload)
{
    const auto [entry, is_new] = states_.try_emplace(topic);
    State &state = entry->second;
    if (!is_new && state.payload == payload)
        return;
    state.payload = payload;
    if (std::ranges::count(events_, topic, &Message::topic) > 0)
        add({topic, payload, true});
    else
        mark_pending(state);
}

void Outbox::resend_states()
{
    for (auto &[topic, state] : states_)
        mark_pending(state);
}

Message Outbox::pop()
{
    if (pending_ > 0) {
        const auto found =
            std::ranges::find_if(states_, [](const auto &entry) { return entry.second.pending; });
        found->second.pending = false;
        --pending_;
        return {found->first, found->second.payload, true};
    }
    Message event = std::move(events_.front());
    events_.pop_front();
    return event;
}

void Outbox::mark_pending(State &state)
{
    pending_ += state.pending ? 0 : 1;
    state.pending = true;
}

} // namespace va::mqtt
