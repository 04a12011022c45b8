#include "mqtt/outbox.h"

#include <algorithm>
#include <utility>

namespace va::mqtt
{

namespace
{

std::size_t size_of(const Message &message)
{
    return message.topic.size() + message.payload.size();
}

} // namespace

void Outbox::add(Message event)
{
    if (event.retained)
        states_[event.topic].payload = event.payload;
    bytes_ += size_of(event);
    events_.push_back({++newest_, std::move(event)});
    trim();
}

void Outbox::set_state(const std::string &topic, const std::string &payload)
{
    const auto [entry, is_new] = states_.try_emplace(topic);
    State &state = entry->second;
    if (!is_new && state.payload == payload)
        return;
    state.payload = payload;
    if (has_event_of(topic))
        add({topic, payload, true});
    else
        mark_pending(state);
}

std::optional<Message> Outbox::next()
{
    if (pending_ > 0) {
        const auto found =
            std::ranges::find_if(states_, [](const auto &entry) { return entry.second.pending; });
        next_ = {.state = found->first};
        return Message{found->first, found->second.payload, true};
    }
    if (sent_events_ == events_.size())
        return std::nullopt;
    next_ = {.event = events_[sent_events_].number};
    return events_[sent_events_].message;
}

void Outbox::sent(int number)
{
    if (next_.event > 0) {
        ++sent_events_;
    } else {
        states_[next_.state].pending = false;
        --pending_;
        ++states_on_way_;
    }
    on_way_[number] = next_;
}

std::optional<std::string> Outbox::acknowledge(int number)
{
    const auto entry = on_way_.extract(number);
    if (!entry)
        return std::nullopt;
    const Item &item = entry.mapped();
    if (item.event > 0)
        return remove_event(item.event);
    remove_state(item.state);
    return item.state;
}

void Outbox::discard()
{
    constexpr int no_number = -1;
    sent(no_number);
    acknowledge(no_number);
}

void Outbox::resend()
{
    on_way_.clear();
    sent_events_ = 0;
    states_on_way_ = 0;
    trim();
    for (auto &[topic, state] : states_)
        mark_pending(state);
}

std::vector<Message> Outbox::events_after(std::uint64_t number) const
{
    std::vector<Message> found;
    for (const Event &event : events_) {
        if (event.number > number)
            found.push_back(event.message);
    }
    return found;
}

void Outbox::mark_pending(State &state)
{
    pending_ += state.pending ? 0 : 1;
    state.pending = true;
}

// Drops the oldest of those that are not on their way.
void Outbox::trim()
{
    while (events_.size() > sent_events_ &&
           (events_.size() - sent_events_ > limit_ || bytes_ > MAX_BYTES)) {
        const auto oldest = events_.begin() + static_cast<std::ptrdiff_t>(sent_events_);
        if (oldest->message.retained)
            mark_pending(states_[oldest->message.topic]); // this may have been its last change
        bytes_ -= size_of(oldest->message);
        events_.erase(oldest);
        ++dropped_;
    }
}

std::string Outbox::remove_event(std::uint64_t number)
{
    const auto found = std::ranges::find(events_, number, &Event::number);
    const Message message = std::move(found->message);
    bytes_ -= size_of(message);
    events_.erase(found);
    --sent_events_;
    if (message.retained)
        forget_empty(message.topic);
    return message.topic;
}

void Outbox::remove_state(const std::string &topic)
{
    --states_on_way_;
    forget_empty(topic);
}

// Once the broker has it, and nothing that would overwrite it is on its way.
void Outbox::forget_empty(const std::string &topic)
{
    const auto found = states_.find(topic);
    if (found != states_.end() && found->second.payload.empty() && !found->second.pending &&
        !has_event_of(topic))
        states_.erase(found);
}

bool Outbox::has_event_of(const std::string &topic) const
{
    return std::ranges::any_of(events_,
                               [&](const Event &event) { return event.message.topic == topic; });
}

} // namespace va::mqtt
