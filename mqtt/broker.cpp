#include "mqtt/broker.h"

#include "mqtt/credentials.h"
#include "tools/common/printing.h"

#include <functional>
#include <stdexcept>
#include <utility>

#include <mosquitto.h>

namespace va::mqtt
{

namespace
{

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::size_t max_on_way = 20; // events and states, sent and not yet acknowledged
constexpr std::size_t max_frames_on_way = 8;
constexpr int max_unsent_bytes = 8192; // else a frame, and events behind it, would come late
constexpr unsigned frame_expiry = 2;   // seconds
constexpr int quick_attempts = 8;      // where a cluster elects its leaders, one after the other

// Nothing tells the end of what is retained.
constexpr auto silence_after_retained = 1s;
constexpr std::size_t max_retained = 1000; // messages
constexpr int max_readings = 3;

constexpr auto spool_interval = 1s;
constexpr auto to_disconnect = 1s;
constexpr auto to_write_spool = 5s;

// One that has ended is waited for: what it frees last must not meet the program's end.
void end(std::thread &thread, bool has_ended)
{
    if (!thread.joinable())
        return;
    if (has_ended)
        thread.join();
    else
        thread.detach();
}

} // namespace

std::shared_ptr<Broker> Broker::open(const Settings &settings, std::optional<Message> last_will,
                                     Subscriptions subscriptions)
{
    std::shared_ptr<Broker> broker(
        new Broker(settings, std::move(last_will), std::move(subscriptions)));
    // They may outlive their user, when a name server or a storage device does not answer.
    broker->thread_ = std::thread([broker] { broker->run(); });
    if (broker->spool_)
        broker->spool_thread_ = std::thread([broker] { broker->run_spool(); });
    return broker;
}

Broker::Broker(const Settings &settings, std::optional<Message> last_will,
               Subscriptions subscriptions)
    : settings_(settings),
      last_will_(std::move(last_will)),
      subscriptions_(std::move(subscriptions)),
      // The cameras of a fleet are spread over the hosts.
      host_(std::hash<std::string>()(settings.client_id) % settings.hosts.size()),
      backoff_(settings.hosts.size() > 1 ? quick_attempts : 0),
      outbox_(static_cast<std::size_t>(settings.keep)),
      report_{.status = "not connected"}
{
    mosquitto_lib_init();
    // Throws what a later attempt only reports.
    BrokerConnection(settings_, settings_.hosts[host_], Protocol::V5, last_will_, *this);
    for (const std::string &host : settings_.hosts) {
        if (shows_password(settings_, host))
            say("the password goes to " + host + " as plain text: there is no --cafile");
    }
    if (settings.spool.empty())
        return;
    spool_.emplace(settings.spool);
    spool_ended_ = false;
    for (const Message &event : spool_->load()) {
        if (event.retained)
            retained_[event.topic] = event.payload;
        outbox_.add(event);
    }
    spooled_ = outbox_.newest_event();
}

Broker::~Broker()
{
    end(thread_, false);
    end(spool_thread_, false);
    mosquitto_lib_cleanup();
}

void Broker::event(const std::string &topic, const std::string &payload, bool retained)
{
    const std::scoped_lock locked(lock_);
    outbox_.add({topic, payload, retained});
    send_waiting();
}

void Broker::state(const std::string &topic, const std::string &payload)
{
    const std::scoped_lock locked(lock_);
    outbox_.set_state(topic, payload);
    send_waiting();
}

bool Broker::frame(const std::string &topic, const std::string &payload,
                   std::optional<std::uint32_t>)
{
    const std::scoped_lock locked(lock_);
    const bool sent = send_frame({topic, payload, false, frame_expiry});
    ++(sent ? report_.frames_sent : report_.frames_dropped);
    return sent;
}

// Not before a message that takes the last one back.
void Broker::send_still(const std::string &topic, const std::string &jpeg, unsigned expiry)
{
    const std::scoped_lock locked(lock_);
    if (outbox_.size() > outbox_.on_way() || !send_frame({topic, jpeg, true, expiry}))
        return;
    outbox_.forget(topic); // that it was taken back
}

std::optional<std::map<std::string, std::string>> Broker::take_retained()
{
    const std::scoped_lock locked(lock_);
    if (reading_ != Reading::Runs || !report_.connected || !subscribing_.empty() ||
        Clock::now() < retained_at_ + silence_after_retained)
        return std::nullopt;
    reading_ = Reading::Done;
    for (const std::string &filter : subscriptions_.retained)
        connection_->unsubscribe(filter);
    return std::exchange(retained_, {});
}

bool Broker::take_command()
{
    const std::scoped_lock locked(lock_);
    return std::exchange(has_command_, false);
}

Broker::Report Broker::report() const
{
    const std::scoped_lock locked(lock_);
    Report report = report_;
    report.events_dropped = outbox_.dropped();
    report.waiting = outbox_.size();
    return report;
}

void Broker::finish(std::chrono::milliseconds timeout)
{
    std::unique_lock locked(lock_);
    changed_.wait_for(locked, timeout, [&] { return outbox_.size() == 0 || report_.failure; });
    if (report_.connected)
        connection_->disconnect(); // ends the loop when it is sent
    stop_ = true;
    changed_.notify_all();
    changed_.wait_for(locked, to_disconnect, [&] { return ended_; });
    changed_.wait_for(locked, to_write_spool, [&] { return spool_ended_; });
    const std::size_t left = outbox_.events();
    const bool is_spooled = spool_ && spooled_ == outbox_.newest_event();
    const bool has_ended = ended_;
    const bool spool_has_ended = spool_ended_;
    locked.unlock();
    end(thread_, has_ended);
    end(spool_thread_, spool_has_ended);
    if (left > 0)
        say(std::to_string(left) + (is_spooled ? " events wait in " + settings_.spool
                                               : " events were not sent and are lost"));
}

void Broker::run()
{
    std::unique_lock locked(lock_);
    while (!stop_ && !report_.failure) {
        locked.unlock();
        const std::string &host = settings_.hosts[host_];
        const BrokerConnection::End end = run_connection(host);
        locked.lock();
        const auto wait = take_end(host, end);
        changed_.wait_for(locked, wait, [&] { return stop_ || report_.failure; });
    }
    ended_ = true;
    changed_.notify_all();
}

BrokerConnection::End Broker::run_connection(const std::string &host)
{
    try {
        const auto known = protocols_.find(host);
        const Protocol protocol = known == protocols_.end() ? Protocol::V5 : known->second;
        BrokerConnection connection(settings_, host, protocol, last_will_, *this);
        std::unique_lock locked(lock_);
        connection_ = &connection;
        report_.status = "connecting to " + address(host);
        if (said_.try_emplace(host, report_.status).second)
            say("broker: " + report_.status);
        locked.unlock();
        const BrokerConnection::End end =
            connection.run([this] { return must_go_on(); }, timeout());
        locked.lock();
        connection_ = nullptr;
        report_.connected = false;
        frames_.clear();
        if (reading_ == Reading::Runs)
            reading_ = Reading::NotYet;
        return end;
    } catch (const std::exception &error) { // a file of the settings, which may be back in a while
        return {.why = error.what()};
    }
}

// A connection that was told to end ends by itself.
bool Broker::must_go_on() const
{
    const std::scoped_lock locked(lock_);
    if (!report_.connected)
        return !stop_;
    const bool is_silent = outbox_.on_way() > 0 && Clock::now() > answered_at_ + timeout();
    return !is_silent || connection_->unsent_bytes() > 0; // else the broker has all
}

// How long to wait before the next attempt.
std::chrono::milliseconds Broker::take_end(const std::string &host,
                                           const BrokerConnection::End &end)
{
    changed_.notify_all();
    if (stop_)
        return 0ms;
    const bool was_connected = end.connected > 0ms;
    if (end.is_protocol) {
        protocols_[host] = Protocol::V3_1_1;
        return 0ms;
    }
    if (!was_connected)
        protocols_.erase(host); // the next time there may be another broker
    has_been_connected_ = has_been_connected_ || was_connected;
    permanent_failures_ = end.is_permanent ? permanent_failures_ + 1 : 0;
    if (!has_been_connected_ && permanent_failures_ >= settings_.hosts.size())
        report_.failure = address(host) + ": " + end.why;
    host_ = (host_ + 1) % settings_.hosts.size();
    failed_hosts_ = was_connected ? 0 : failed_hosts_ + 1;
    const bool has_next = !was_connected && failed_hosts_ % settings_.hosts.size() > 0;
    const auto wait = has_next ? 0ms : backoff_.after(end.connected);
    report_.status = "waiting for " + address(host) + ": " + end.why;
    if (backoff_.is_flapping())
        report_.status += "; has another client the id " + settings_.client_id + '?';
    if (!report_.failure && std::exchange(said_[host], report_.status) != report_.status)
        say("broker: " + report_.status);
    return wait;
}

// For an answer of the broker. With other hosts it is better to go on to them: one of a cluster
// that has no leader never answers. But a slow network needs its time.
std::chrono::seconds Broker::timeout() const
{
    return backoff_.is_quick() ? 2s : 15s;
}

void Broker::on_connect()
{
    const std::scoped_lock locked(lock_);
    report_.connected = true;
    report_.status = "connected to " + address(settings_.hosts[host_]);
    said_.clear();
    say("broker: " + report_.status);
    if (!subscriptions_.command.empty())
        connection_->subscribe(subscriptions_.command);
    if (reading_ == Reading::NotYet)
        read_retained();
    outbox_.resend();
    send_waiting();
}

void Broker::on_publish(int number, const std::string &refusal)
{
    const std::scoped_lock locked(lock_);
    if (frames_.erase(number) > 0)
        return;
    answered_at_ = Clock::now();
    const auto topic = outbox_.acknowledge(number);
    if (topic && refusal.empty())
        ++report_.events_sent;
    else if (topic)
        count_refusal(*topic, refusal);
    send_waiting();
    changed_.notify_all();
}

void Broker::on_subscribe(int number, bool is_granted)
{
    const std::scoped_lock locked(lock_);
    retained_at_ = Clock::now();
    if (subscribing_.erase(number) > 0 && !is_granted)
        say_unreadable();
}

void Broker::on_message(const Message &message)
{
    const std::scoped_lock locked(lock_);
    if (message.topic == subscriptions_.command) {
        has_command_ = has_command_ || !message.retained; // else each connect would be one
    } else if (message.retained && reading_ == Reading::Runs && retained_.size() < max_retained) {
        retained_[message.topic] = message.payload;
        retained_at_ = Clock::now();
    }
}

void Broker::run_spool()
{
    std::unique_lock locked(lock_);
    for (bool is_last = false; !is_last;) {
        changed_.wait_for(locked, spool_interval, [&] { return stop_; });
        is_last = stop_;
        write_spool(locked, is_last);
    }
    spool_ended_ = true;
    changed_.notify_all();
}

// What was sent leaves the file when nothing waits any more or, when it grows too large, before.
void Broker::write_spool(std::unique_lock<std::mutex> &locked, bool is_last)
{
    const bool is_whole = is_last || spool_->size() > Spool::MAX_BYTES / 2;
    const std::uint64_t newest = outbox_.newest_event();
    const std::uint64_t oldest = outbox_.oldest_event();
    const bool is_empty = oldest == 0;
    const bool moves_on = std::exchange(oldest_, oldest) != oldest;
    if (report_.connected && moves_on && !is_empty && !is_last)
        return; // they wait for acknowledgements alone
    const std::vector<Message> events = outbox_.events_after(is_whole ? 0 : spooled_);
    locked.unlock();
    bool is_written = true;
    if (is_empty)
        is_written = spool_->clear();
    else if (!events.empty())
        is_written = is_whole ? spool_->replace(events) : spool_->append(events);
    locked.lock();
    if (is_written)
        spooled_ = newest;
}

void Broker::read_retained()
{
    reading_ = Reading::Runs;
    subscribing_.clear();
    retained_at_ = Clock::now();
    if (++readings_ > max_readings) { // some brokers close the connection of who may not subscribe
        say_unreadable();
        return;
    }
    for (const std::string &filter : subscriptions_.retained)
        subscribing_.insert(connection_->subscribe(filter));
}

void Broker::say_unreadable()
{
    if (!std::exchange(report_.unreadable, true))
        say("broker: what it retains of this camera may not be read");
}

std::string Broker::address(const std::string &host) const
{
    return host + ':' + std::to_string(settings_.port);
}

void Broker::send_waiting()
{
    while (report_.connected && outbox_.on_way() < max_on_way) {
        const auto message = outbox_.next();
        if (!message)
            return;
        const BrokerConnection::Sending sending = connection_->publish(*message, settings_.qos);
        if (sending.number > 0) {
            if (outbox_.on_way() == 0)
                answered_at_ = Clock::now();
            outbox_.sent(sending.number);
        } else if (!sending.refusal.empty()) {
            outbox_.discard();
            count_refusal(message->topic, sending.refusal);
        } else {
            return; // the connection has just gone
        }
    }
}

bool Broker::send_frame(const Message &message)
{
    if (!report_.connected || frames_.size() >= max_frames_on_way ||
        connection_->unsent_bytes() > max_unsent_bytes)
        return false;
    const BrokerConnection::Sending sending = connection_->publish(message, 0);
    if (sending.number > 0)
        frames_.insert(sending.number);
    return sending.number > 0;
}

void Broker::count_refusal(const std::string &topic, const std::string &reason)
{
    if (report_.refused++ == 0)
        say("broker: refuses " + topic + ": " + reason + "; all that it refuses is counted");
}

} // namespace va::mqtt
