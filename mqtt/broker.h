#pragma once

#include "mqtt/outbox.h"
#include "mqtt/settings.h"
#include "tools/common/message_maker.h"

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

// The connection to the MQTT broker. A thread of its own connects, again and again, so that a name
// server or a host that does not answer delays nobody who reads the daemon's records. Each change
// of the connection is reported on standard error.
//
// Events reach the broker in their order, once or, when the connection broke meanwhile, twice;
// while it is away as many of the newest are kept as the settings say. Of states, which the broker
// retains, it gets the newest: whenever one is set, and all of them after each connect, before the
// events that are left. Frames are sent at once or not at all.
class Broker : public MessageTarget
{
public:
    // `last_will` is what the broker publishes when the connection breaks. Throws
    // std::runtime_error when a file of the settings cannot be used.
    static std::shared_ptr<Broker> open(const Settings &settings, const Message &last_will);
    ~Broker() override;

    // Any thread; none of them waits.

    void event(const std::string &topic, const std::string &payload, bool retained) override;
    void state(const std::string &topic, const std::string &payload) override;
    bool frame(const std::string &topic, const std::string &payload,
               std::optional<std::uint32_t> picture) override;

    // Retained, but sent at once or not at all like a frame, and not counted. Whoever sets a state
    // of this topic takes it back.
    void send_still(const std::string &topic, const std::string &jpeg);

    struct Report {
        std::uint64_t frames_sent = 0;
        std::uint64_t frames_dropped = 0; // the broker was away, or slow
        std::uint64_t events_sent = 0;    // states too
        std::uint64_t events_dropped = 0; // too many while it was away
        std::size_t waiting = 0;          // events and states
        bool connected = false;
        std::string status = {}; // of the connection, for people
        // Why it will never be connected, such as a wrong password. Not once it has been
        // connected: then it is the broker that may be at fault.
        std::optional<std::string> failure = {};
    };
    Report report() const;

    // Waits until all events and states are with the broker, or for `timeout`, and disconnects, so
    // that the last will is not published. What is sent later is lost.
    void finish(std::chrono::milliseconds timeout);

private:
    Broker(const Settings &settings, const Message &last_will);
    static Broker &of(void *object) { return *static_cast<Broker *>(object); }

    // Gives the library what identifies the camera to the broker, and the broker to the camera. A
    // password is the first line of a file that its owner alone may change and that others than
    // its group cannot read. Of a file that cannot be used an error holds nothing of the content.
    void set_credentials(); // in credentials.cpp

    // The thread's, and the library's in it.
    void run();
    void run_connection();
    bool must_go_on() const;
    void on_connect(int answer);
    void on_disconnect();
    void on_publish(int number);
    void on_error(const char *text);
    std::string take_error(int result, int error);

    // With the lock.
    void set_status(const std::string &text);
    void send_waiting();
    bool send_now(const Message &message, int qos, std::set<int> &in_flight);

    const Settings settings_;
    const std::string address_; // host and port
    std::unique_ptr<mosquitto, void (*)(mosquitto *)> handle_;
    bool refused_ = false; // of the thread: by the broker, in its answer

    std::mutex error_lock_; // not `lock_`, with which the library may report an error
    std::string error_;     // the first one of this attempt

    mutable std::mutex lock_; // of all that follows; also held while the library is given a message
    std::condition_variable changed_;
    Outbox outbox_;
    std::set<int> events_; // in flight, by the library's numbers
    std::set<int> frames_;
    Report report_;
    std::uint64_t connections_ = 0; // so far
    bool stop_ = false;
    bool ended_ = false; // the thread has
};

} // namespace va::mqtt
