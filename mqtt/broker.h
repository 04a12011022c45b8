#pragma once

#include "mqtt/outbox.h"
#include "mqtt/settings.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

struct mosquitto;

namespace va::mqtt
{

// The connection to the MQTT broker: made again for ever, by a thread of its own, so that a name
// server or a host that does not answer keeps nobody from reading the daemon's records. What
// becomes of it is said on standard error, once a change.
//
// Events reach the broker in their order, once or, when the connection broke meanwhile, twice;
// while it is away as many of the newest are kept as the settings say. Of states, which the broker
// retains, it is told the newest: whenever one is set, and all of them after each connect, before
// the events that are left. Frames are sent at once or not at all.
class Broker
{
public:
    using Message = Outbox::Letter;

    // `last_will` is what the broker tells when the connection breaks. Throws std::runtime_error
    // when a file of the settings cannot be used.
    static std::shared_ptr<Broker> open(const Settings &settings, const Message &last_will);
    Broker(const Broker &) = delete;
    Broker &operator=(const Broker &) = delete;
    ~Broker();

    // Any thread; none of them waits.

    void send_event(Message message); // one that is retained changes a state
    void set_state(const std::string &topic, const std::string &payload); // "": it has none
    void send_frame(const std::string &topic, const std::string &payload);

    struct Counts {
        std::uint64_t frames_sent = 0;
        std::uint64_t frames_dropped = 0; // the broker was away, or slow
        std::uint64_t events_sent = 0;    // states too
        std::uint64_t events_dropped = 0; // too many while it was away
        std::size_t waiting = 0;
    };
    Counts counts() const;
    bool is_connected() const;
    std::string status() const; // what was said last

    // Why it will never be connected, such as a wrong password. Not after it was connected once:
    // then it is the broker that may mend it.
    std::optional<std::string> failure() const;

    // Waits until all events and states are with the broker, or the time is up, and says good-bye,
    // so that the last will stays unsaid. What is sent later is lost.
    void finish(std::chrono::milliseconds patience);

private:
    struct Destroy {
        void operator()(mosquitto *handle) const;
    };

    Broker(const Settings &settings, const Message &last_will);
    static Broker &of(void *object) { return *static_cast<Broker *>(object); }

    // The thread's, and the library's in it.
    void run();
    void run_connection();
    int connect();
    bool may_go_on() const;
    void on_connect(int answer);
    void on_disconnect();
    void on_publish(int number);
    void on_fault(const char *text);
    void forget_fault();
    std::string fault_of(int result, int error);
    void say_status(const std::string &text);

    // With the lock.
    void send_waiting();
    bool send_now(const Message &message, int qos, std::set<int> &under_way);
    bool is_done() const { return outbox_.is_empty() && events_.empty(); }

    const Settings settings_;
    const std::string place_; // host and port
    std::unique_ptr<mosquitto, Destroy> handle_;
    bool refused_ = false; // of the thread: by the broker, in its answer

    std::mutex fault_lock_;
    std::string fault_; // what the library last complained of

    mutable std::mutex lock_; // of all that follows; also held while the library is given a message
    std::condition_variable changed_;
    Outbox outbox_;
    std::set<int> events_; // under way, by the library's numbers
    std::set<int> frames_;
    Counts counts_;
    std::uint64_t connections_ = 0; // so far
    bool connected_ = false;
    bool stop_ = false;
    bool ended_ = false; // the thread has
    std::string status_;
    std::optional<std::string> failure_;
};

} // namespace va::mqtt
