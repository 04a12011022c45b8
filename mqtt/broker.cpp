#include "mqtt/broker.h"

#include "mqtt/credentials.h"
#include "mqtt/pause.h"
#include "tools/common/printing.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include <mosquitto.h>

namespace va::mqtt
{

namespace
{

constexpr std::size_t events_under_way = 20; // sent, and not yet acknowledged
constexpr std::size_t frames_under_way = 8;
constexpr int loop_ms = 200; // the bound on noticing a stop; what is sent wakes the library

// "OpenSSL Error[0]: error:0A000086:SSL routines::certificate verify failed" from its last part on,
// and "Error: Unable to load CA certificates, ..." without its first; no full stop.
std::string plain(std::string text)
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

// Whether the same will be said at every attempt.
bool is_lasting(const std::string &fault)
{
    constexpr const char *parts[] = {"verify failed", "verification failed", "Unable to load",
                                     "inconsistent"};
    return std::ranges::any_of(
        parts, [&](const char *part) { return fault.find(part) != std::string::npos; });
}

} // namespace

void Broker::Destroy::operator()(mosquitto *handle) const
{
    mosquitto_destroy(handle);
    mosquitto_lib_cleanup();
}

std::shared_ptr<Broker> Broker::open(const Settings &settings, const Message &last_will)
{
    std::shared_ptr<Broker> broker(new Broker(settings, last_will));
    // A host or a name server that does not answer may let the thread outlive its user.
    std::thread([broker] { broker->run(); }).detach();
    return broker;
}

Broker::Broker(const Settings &settings, const Message &last_will)
    : settings_(settings),
      place_(settings.host + ':' + std::to_string(settings.port)),
      outbox_(settings.keep),
      status_("connecting to " + place_)
{
    mosquitto_lib_init();
    handle_.reset(mosquitto_new(settings.client_id.c_str(), true, this));
    mosquitto *const handle = handle_.get();
    if (!handle)
        throw std::bad_alloc();
    mosquitto_threaded_set(handle, true);
    mosquitto_int_option(handle, MOSQ_OPT_TCP_NODELAY, 1); // else what follows waits for 40 ms
    mosquitto_max_inflight_messages_set(handle, events_under_way);
    mosquitto_will_set(handle, last_will.topic.c_str(), static_cast<int>(last_will.payload.size()),
                       last_will.payload.data(), 1, last_will.retained);
    set_credentials(handle, settings);
    mosquitto_connect_callback_set(
        handle, [](mosquitto *, void *broker, int answer) { of(broker).on_connect(answer); });
    mosquitto_disconnect_callback_set(
        handle, [](mosquitto *, void *broker, int) { of(broker).on_disconnect(); });
    mosquitto_publish_callback_set(
        handle, [](mosquitto *, void *broker, int number) { of(broker).on_publish(number); });
    mosquitto_log_callback_set(handle, [](mosquitto *, void *broker, int level, const char *text) {
        if (level == MOSQ_LOG_ERR)
            of(broker).on_fault(text);
    });
}

Broker::~Broker() = default;

void Broker::send_event(Message message)
{
    const std::scoped_lock locked(lock_);
    outbox_.add(std::move(message));
    send_waiting();
}

void Broker::set_state(const std::string &topic, const std::string &payload)
{
    const std::scoped_lock locked(lock_);
    outbox_.set(topic, payload);
    send_waiting();
}

void Broker::send_frame(const std::string &topic, const std::string &payload)
{
    const std::scoped_lock locked(lock_);
    const bool sent =
        connected_ && frames_.size() < frames_under_way && send_now({topic, payload}, 0, frames_);
    ++(sent ? counts_.frames_sent : counts_.frames_dropped);
}

Broker::Counts Broker::counts() const
{
    const std::scoped_lock locked(lock_);
    Counts counts = counts_;
    counts.events_dropped += outbox_.dropped();
    counts.waiting = outbox_.size() + events_.size();
    return counts;
}

bool Broker::is_connected() const
{
    const std::scoped_lock locked(lock_);
    return connected_;
}

std::string Broker::status() const
{
    const std::scoped_lock locked(lock_);
    return status_;
}

std::optional<std::string> Broker::failure() const
{
    const std::scoped_lock locked(lock_);
    return failure_;
}

void Broker::finish(std::chrono::milliseconds patience)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    std::unique_lock locked(lock_);
    changed_.wait_until(locked, end, [&] { return is_done() || failure_; });
    if (connected_)
        mosquitto_disconnect(handle_.get()); // ends the loop when it is sent
    stop_ = true;
    changed_.notify_all();
    constexpr std::chrono::seconds for_good_bye{1};
    changed_.wait_for(locked, for_good_bye, [&] { return ended_; });
}

// The library has such a loop too, but it ends for good at some faults, and does not tell at which.
void Broker::run()
{
    Pause pause;
    std::unique_lock locked(lock_);
    while (!stop_ && !failure_) {
        const std::uint64_t before = connections_;
        locked.unlock();
        run_connection();
        locked.lock();
        if (connections_ != before)
            pause.reset();
        changed_.wait_for(locked, pause.next(), [&] { return stop_ || failure_; });
    }
    ended_ = true;
    changed_.notify_all();
}

void Broker::run_connection()
{
    forget_fault();
    errno = 0;
    int result = connect();
    while (result == MOSQ_ERR_SUCCESS && may_go_on()) {
        errno = 0;
        result = mosquitto_loop(handle_.get(), loop_ms, 1);
    }
    const std::string fault = fault_of(result, errno);
    on_disconnect();
    const std::scoped_lock locked(lock_);
    if (stop_)
        return;
    if (connections_ == 0 && (refused_ || is_lasting(fault)))
        failure_ = place_ + ": " + fault;
    else
        say_status("waiting for " + place_ + ": " + fault);
    changed_.notify_all();
}

// Waits, because with TLS the library's other way does not see that nobody listens.
int Broker::connect()
{
    return mosquitto_connect(handle_.get(), settings_.host.c_str(), settings_.port,
                             settings_.keep_alive);
}

// A connection that was told to end ends by itself.
bool Broker::may_go_on() const
{
    const std::scoped_lock locked(lock_);
    return connected_ || !stop_;
}

void Broker::on_connect(int answer)
{
    constexpr int try_later = 3; // the broker is unavailable
    if (answer != 0) {
        on_fault(mosquitto_connack_string(answer));
        refused_ = answer != try_later;
        return;
    }
    const std::scoped_lock locked(lock_);
    ++connections_;
    connected_ = true;
    say_status("connected to " + place_);
    outbox_.renew();
    send_waiting();
}

void Broker::on_disconnect()
{
    const std::scoped_lock locked(lock_);
    connected_ = false;
    frames_.clear();
    if (settings_.qos == 0) { // the library forgets them; the others it sends again
        counts_.events_dropped += events_.size();
        events_.clear();
    }
    changed_.notify_all();
}

void Broker::on_publish(int number)
{
    const std::scoped_lock locked(lock_);
    if (frames_.erase(number) > 0)
        return;
    if (events_.erase(number) > 0)
        ++counts_.events_sent;
    send_waiting();
    changed_.notify_all();
}

// What comes first tells most.
void Broker::on_fault(const char *text)
{
    const std::scoped_lock locked(fault_lock_);
    if (fault_.empty())
        fault_ = text;
}

void Broker::forget_fault()
{
    const std::scoped_lock locked(fault_lock_);
    fault_.clear();
    refused_ = false;
}

std::string Broker::fault_of(int result, int error)
{
    const std::scoped_lock locked(fault_lock_);
    if (!fault_.empty())
        return plain(fault_);
    if (result == MOSQ_ERR_EAI)
        return "its name is not found";
    if (result == MOSQ_ERR_KEEPALIVE)
        return "it does not answer";
    return plain(result == MOSQ_ERR_ERRNO ? std::generic_category().message(error)
                                          : mosquitto_strerror(result));
}

void Broker::say_status(const std::string &text)
{
    if (std::exchange(status_, text) != text)
        say("broker: " + text);
}

void Broker::send_waiting()
{
    while (connected_ && !outbox_.is_empty() && events_.size() < events_under_way) {
        if (!send_now(outbox_.take(), settings_.qos, events_))
            ++counts_.events_dropped;
    }
}

// A message of quality 1 or 2 is the library's also when the connection has just gone.
bool Broker::send_now(const Message &message, int qos, std::set<int> &under_way)
{
    int number = 0;
    const int result = mosquitto_publish(handle_.get(), &number, message.topic.c_str(),
                                         static_cast<int>(message.payload.size()),
                                         message.payload.data(), qos, message.retained);
    if (result != MOSQ_ERR_SUCCESS && (result != MOSQ_ERR_NO_CONN || qos == 0))
        return false;
    under_way.insert(number);
    return true;
}

} // namespace va::mqtt
