#include "mqtt/broker.h"

#include "mqtt/credentials.h"
#include "tools/common/printing.h"
#include "util/text.h"

#include <functional>
#include <stdexcept>
#include <system_error>
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
constexpr std::size_t largest_kept = 4096; // bytes; of a larger one it counts that it is there
constexpr int max_cut_readings = 3;

constexpr auto still_rest = 1h;

constexpr auto spool_interval = 1s;
constexpr std::chrono::seconds longest_silence = 15s; // of a broker that is to answer
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
    const BrokerConnection attempt(settings_, settings_.hosts[host_], Protocol::V5, last_will_,
                                   *this);
    for (const std::string &host : settings_.hosts) {
        if (shows_password(settings_, host))
            say("the password goes to " + host + " as plain text: there is no --cafile");
    }
    if (!settings.spool.empty())
        open_spool();
}

// A storage device that has failed takes the spool, not the camera.
void Broker::open_spool()
{
    try {
        spool_.emplace(settings_.spool);
        for (const Message &event : spool_->load()) {
            if (event.retained)
                spooled_states_[event.topic] = event.payload;
            outbox_.add(event);
        }
    } catch (const std::system_error &error) {
        say(std::string(error.what()) + "; events wait in memory alone");
        spool_.reset();
        return;
    }
    spool_ended_ = false;
    spooled_ = outbox_.newest_event();
    retained_ = spooled_states_;
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
    if (jpeg.size() > largest_still_ && Clock::now() < still_cut_at_ + still_rest)
        return;
    if (outbox_.size() > outbox_.on_way() || !send_frame({topic, jpeg, true, expiry}))
        return;
    outbox_.forget(topic); // that it was taken back
    still_on_way_ = jpeg.size();
}

std::optional<std::map<std::string, std::string>> Broker::take_retained()
{
    const std::scoped_lock locked(lock_);
    if (reading_ != Reading::Runs || !report_.connected || !subscribing_.empty() ||
        !has_read_all_ || Clock::now() < retained_at_ + silence_after_retained)
        return std::nullopt;
    reading_ = Reading::Done;
    // Some refuse a subscription, some grant it and send nothing, not even what has just been sent.
    if (report_.unreadable || report_.unheard)
        say("broker: nothing of this camera can be read there: counters begin at 0");
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
        const bool is_old = old_once_ || old_hosts_.contains(host);
        old_once_ = false;
        BrokerConnection connection(settings_, host, is_old ? Protocol::V3_1_1 : Protocol::V5,
                                    last_will_, *this);
        begin(connection, host);
        const std::unique_ptr<Broker, void (*)(Broker *)> ending(
            this, [](Broker *broker) { broker->end_connection(); });
        return connection.run([this] { return must_go_on(); }, timeout());
    } catch (const std::exception &error) { // a file of the settings, which may be back in a while
        return {.why = error.what()};
    }
}

void Broker::begin(BrokerConnection &connection, const std::string &host)
{
    const std::scoped_lock locked(lock_);
    connection_ = &connection;
    report_.status = "connecting to " + address(host);
    if (said_[host].empty() && said_[host].insert(report_.status).second)
        say("broker: " + report_.status);
}

void Broker::end_connection()
{
    const std::scoped_lock locked(lock_);
    connection_ = nullptr;
    report_.connected = false;
    frames_.clear();
    if (const std::size_t size = std::exchange(still_on_way_, 0); size > 0 && !stop_) {
        // On a line so slow that the broker cannot answer meanwhile each one would end like this.
        largest_still_ = size / 2;
        still_cut_at_ = Clock::now();
        say(formatted("a still of %zu bytes was not through when the connection ended: for an hour "
                      "none above %zu bytes is sent",
                      size, largest_still_));
    }
    if (reading_ != Reading::Runs)
        return;
    reading_ = Reading::NotYet;
    cut_readings_ += subscribing_.empty() ? 0 : 1;
}

// A connection that was told to end ends by itself.
bool Broker::must_go_on()
{
    const std::scoped_lock locked(lock_);
    if (!report_.connected)
        return !stop_;
    if (frames_.empty() && connection_->unsent_bytes() == 0)
        still_on_way_ = 0;
    const bool is_silent =
        outbox_.on_way() > 0 &&
        Clock::now() > answered_at_ + (has_answered_ ? longest_silence : timeout());
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
    if (end.is_protocol || end.is_unanswered) {
        old_once_ = true;
        if (end.is_protocol)
            old_hosts_.insert(host);
        return 0ms;
    }
    if (!was_connected)
        old_hosts_.erase(host); // the next time there may be another broker
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
    if (!report_.failure && said_[host].insert(report_.status).second)
        say("broker: " + report_.status);
    return wait;
}

// For an answer of the broker. With other hosts it is better to go on to them: one of a cluster
// that has no leader never answers. But a slow network needs its time.
std::chrono::seconds Broker::timeout() const
{
    return backoff_.is_quick() ? 2s : longest_silence;
}

void Broker::on_connect()
{
    const std::scoped_lock locked(lock_);
    report_.connected = true;
    has_answered_ = false;
    report_.status = "connected to " + address(settings_.hosts[host_]) +
                     (connection_->protocol() == Protocol::V5 ? "" : ", by MQTT 3.1.1");
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
    has_answered_ = true;
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
        report_.unreadable = true;
}

void Broker::on_message(const Message &message)
{
    const std::scoped_lock locked(lock_);
    if (message.topic == subscriptions_.command) {
        has_command_ = has_command_ || !message.retained; // else each connect would be one
        return;
    }
    report_.unheard = false;
    has_read_all_ = has_read_all_ || message.topic == subscriptions_.end;
    if (message.retained && reading_ == Reading::Runs && retained_.size() < max_retained) {
        // What the spool has is newer.
        retained_.try_emplace(message.topic,
                              message.payload.size() > largest_kept ? "" : message.payload);
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
    has_read_all_ = subscriptions_.end.empty();
    subscribing_.clear();
    retained_at_ = Clock::now();
    if (cut_readings_ >= max_cut_readings) // as where who may not subscribe is disconnected
        return;
    for (const std::string &filter : subscriptions_.retained)
        subscribing_.insert(connection_->subscribe(filter));
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
