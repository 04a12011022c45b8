#include "mqtt/broker.h"

#include "tools/common/printing.h"
#include "util/text.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <random>
#include <thread>
#include <utility>

#include <mosquitto.h>

namespace va::mqtt
{

namespace
{

constexpr std::size_t max_events_in_flight = 20; // sent, and not yet acknowledged
constexpr std::size_t max_frames_in_flight = 8;
constexpr int loop_ms = 200; // the bound on noticing a stop; what is sent wakes the library

// How long to wait before the next attempt: twice as long each time, from a second to half a
// minute, less a random part, so that a thousand cameras do not reconnect in the same moment.
class Backoff
{
public:
    void reset() { longest_ = first; }

    std::chrono::milliseconds next()
    {
        std::uniform_int_distribution<std::chrono::milliseconds::rep> part(longest_.count() / 2,
                                                                           longest_.count());
        longest_ = std::min(longest_ * 2, last);
        return std::chrono::milliseconds(part(random_));
    }

private:
    static constexpr std::chrono::milliseconds first{1000};
    static constexpr std::chrono::milliseconds last{30000};

    std::chrono::milliseconds longest_ = first;
    std::minstd_rand random_{std::random_device{}()};
};

// "OpenSSL Error[0]: error:0A000086:SSL routines::certificate verify failed" from its last part on,
// and "Error: Unable to load CA certificates, ..." without its first; no full stop.
std::string shortened(std::string text)
{
    constexpr char colons[] = "::";
    constexpr std::string_view error = "Error: ";
    if (const std::size_t at = text.rfind(colons); at != std::string::npos)
        text.erase(0, at + 2);
    if (text.starts_with(error))
        text.erase(0, error.size());
    if (text.ends_with('.'))
        text.pop_back();
    return text;
}

// Whether each attempt will fail with it.
bool is_permanent(const std::string &error)
{
    constexpr const char *parts[] = {"verify failed", "verification failed", "Unable to load",
                                     "inconsistent"};
    return std::ranges::any_of(
        parts, [&](const char *part) { return error.find(part) != std::string::npos; });
}

} // namespace

std::shared_ptr<Broker> Broker::open(const Settings &settings, const Message &last_will)
{
    std::shared_ptr<Broker> broker(new Broker(settings, last_will));
    // A host or a name server that does not answer may let the thread outlive its user.
    std::thread([broker] { broker->run(); }).detach();
    return broker;
}

Broker::Broker(const Settings &settings, const Message &last_will)
    : settings_(settings),
      address_(settings.host + ':' + std::to_string(settings.port)),
      handle_(nullptr,
              [](mosquitto *handle) {
                  mosquitto_destroy(handle);
                  mosquitto_lib_cleanup();
              }),
      outbox_(settings.keep),
      report_{.status = "connecting to " + address_}
{
    mosquitto_lib_init();
    handle_.reset(mosquitto_new(settings.client_id.c_str(), true, this));
    mosquitto *const handle = handle_.get();
    if (!handle)
        throw std::bad_alloc();
    mosquitto_threaded_set(handle, true);
    mosquitto_int_option(handle, MOSQ_OPT_TCP_NODELAY, 1); // else what follows waits for 40 ms
    mosquitto_max_inflight_messages_set(handle, max_events_in_flight);
    mosquitto_will_set(handle, last_will.topic.c_str(), static_cast<int>(last_will.payload.size()),
                       last_will.payload.data(), 1, last_will.retained);
    set_credentials();
    mosquitto_connect_callback_set(
        handle, [](mosquitto *, void *broker, int answer) { of(broker).on_connect(answer); });
    mosquitto_disconnect_callback_set(
        handle, [](mosquitto *, void *broker, int) { of(broker).on_disconnect(); });
    mosquitto_publish_callback_set(
        handle, [](mosquitto *, void *broker, int number) { of(broker).on_publish(number); });
    mosquitto_log_callback_set(handle, [](mosquitto *, void *broker, int level, const char *text) {
        if (level == MOSQ_LOG_ERR)
            of(broker).on_error(text);
    });
}

Broker::~Broker() = default;

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
    const bool sent = report_.connected && frames_.size() < max_frames_in_flight &&
                      send_now({topic, payload}, 0, frames_);
    ++(sent ? report_.frames_sent : report_.frames_dropped);
    return sent;
}

// Not before a message that takes the last one back.
void Broker::send_still(const std::string &topic, const std::string &jpeg)
{
    const std::scoped_lock locked(lock_);
    if (!report_.connected || !outbox_.is_empty() || frames_.size() >= max_frames_in_flight)
        return;
    outbox_.forget(topic);
    send_now({topic, jpeg, true}, 0, frames_);
}

Broker::Report Broker::report() const
{
    const std::scoped_lock locked(lock_);
    Report report = report_;
    report.events_dropped += outbox_.dropped();
    report.waiting = outbox_.size() + events_.size();
    return report;
}

void Broker::finish(std::chrono::milliseconds timeout)
{
    std::unique_lock locked(lock_);
    changed_.wait_for(locked, timeout,
                      [&] { return (outbox_.is_empty() && events_.empty()) || report_.failure; });
    if (report_.connected)
        mosquitto_disconnect(handle_.get()); // ends the loop when it is sent
    stop_ = true;
    changed_.notify_all();
    constexpr std::chrono::seconds to_disconnect{1};
    changed_.wait_for(locked, to_disconnect, [&] { return ended_; });
}

// The library has such a loop too, but it ends for good at some errors, and does not say at which.
void Broker::run()
{
    Backoff backoff;
    std::unique_lock locked(lock_);
    while (!stop_ && !report_.failure) {
        const std::uint64_t before = connections_;
        locked.unlock();
        run_connection();
        locked.lock();
        if (connections_ != before)
            backoff.reset();
        changed_.wait_for(locked, backoff.next(), [&] { return stop_ || report_.failure; });
    }
    ended_ = true;
    changed_.notify_all();
}

void Broker::run_connection()
{
    refused_ = false;
    errno = 0;
    // Waits, because with TLS the library's other way does not see that nobody listens.
    int result = mosquitto_connect(handle_.get(), settings_.host.c_str(), settings_.port,
                                   settings_.keep_alive);
    while (result == MOSQ_ERR_SUCCESS && must_go_on()) {
        errno = 0;
        result = mosquitto_loop(handle_.get(), loop_ms, 1);
    }
    const std::string error = take_error(result, errno);
    on_disconnect();
    const std::scoped_lock locked(lock_);
    if (stop_)
        return;
    if (connections_ == 0 && (refused_ || is_permanent(error)))
        report_.failure = address_ + ": " + error;
    else
        set_status("waiting for " + address_ + ": " + error);
    changed_.notify_all();
}

// A connection that was told to end ends by itself.
bool Broker::must_go_on() const
{
    const std::scoped_lock locked(lock_);
    return report_.connected || !stop_;
}

void Broker::on_connect(int answer)
{
    constexpr int try_later = 3; // the broker is unavailable
    if (answer != 0) {
        on_error(mosquitto_connack_string(answer));
        refused_ = answer != try_later;
        return;
    }
    const std::scoped_lock locked(lock_);
    ++connections_;
    report_.connected = true;
    set_status("connected to " + address_);
    outbox_.resend_states();
    send_waiting();
}

void Broker::on_disconnect()
{
    const std::scoped_lock locked(lock_);
    report_.connected = false;
    frames_.clear();
    if (settings_.qos == 0) { // the library forgets them; the others it sends again
        report_.events_dropped += events_.size();
        events_.clear();
    }
    changed_.notify_all();
}

void Broker::on_publish(int number)
{
    const std::scoped_lock locked(lock_);
    if (frames_.erase(number) > 0)
        return;
    report_.events_sent += events_.erase(number);
    send_waiting();
    changed_.notify_all();
}

// The first one says most.
void Broker::on_error(const char *text)
{
    const std::scoped_lock locked(error_lock_);
    if (error_.empty())
        error_ = text;
}

// What ended the attempt.
std::string Broker::take_error(int result, int error)
{
    const std::scoped_lock locked(error_lock_);
    if (!error_.empty())
        return shortened(std::exchange(error_, ""));
    if (result == MOSQ_ERR_EAI)
        return "its name is not found";
    if (result == MOSQ_ERR_KEEPALIVE)
        return "it does not answer";
    return shortened(result == MOSQ_ERR_ERRNO ? error_text(error) : mosquitto_strerror(result));
}

void Broker::set_status(const std::string &text)
{
    if (std::exchange(report_.status, text) != text)
        say("broker: " + text);
}

void Broker::send_waiting()
{
    while (report_.connected && !outbox_.is_empty() && events_.size() < max_events_in_flight) {
        if (!send_now(outbox_.pop(), settings_.qos, events_))
            ++report_.events_dropped;
    }
}

// A message of quality 1 or 2 is the library's also when the connection has just gone.
bool Broker::send_now(const Message &message, int qos, std::set<int> &in_flight)
{
    int number = 0;
    const int result = mosquitto_publish(handle_.get(), &number, message.topic.c_str(),
                                         static_cast<int>(message.payload.size()),
                                         message.payload.data(), qos, message.retained);
    if (result != MOSQ_ERR_SUCCESS && (result != MOSQ_ERR_NO_CONN || qos == 0))
        return false;
    in_flight.insert(number);
    return true;
}

} // namespace va::mqtt
