#pragma once

#include "mqtt/backoff.h"
#include "mqtt/connection.h"
#include "mqtt/outbox.h"
#include "mqtt/settings.h"
#include "mqtt/spool.h"
#include "tools/common/message_maker.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace va::mqtt
{

// The MQTT broker, whichever of the hosts it is at. A thread of its own connects, again and again,
// so that a name server or a host that does not answer delays nobody who reads the daemon's
// records. Each change of the connection is reported on standard error.
//
// Events reach the broker in their order, once or, when the connection broke meanwhile, twice;
// while it is away as many of the newest are kept as the settings say, in memory and, with a spool,
// in its file, at most two seconds later. Of states, which the broker retains, it gets the newest:
// whenever one is set, and all of them after each connect, before the events that are left. Frames
// are sent at once or not at all.
class Broker : public MessageTarget, private BrokerConnection::User
{
public:
    struct Subscriptions {
        std::vector<std::string> retained = {}; // read once; nothing of it is heard later
        std::string command = {};               // a topic; empty: none
        std::string end = {}; // a topic whose message is behind all that is retained; empty: none
    };

    // `last_will` is what the broker publishes when the connection breaks. Throws
    // std::runtime_error and std::system_error when a file of the settings cannot be used.
    static std::shared_ptr<Broker> open(const Settings &settings, std::optional<Message> last_will,
                                        Subscriptions subscriptions);
    ~Broker() override;

    // Any thread; none of them waits.

    void event(const std::string &topic, const std::string &payload, bool retained) override;
    void state(const std::string &topic, const std::string &payload) override;
    bool frame(const std::string &topic, const std::string &payload,
               std::optional<std::uint32_t> picture) override;

    // Retained, but sent at once or not at all like a frame, and not counted. Whoever sets a state
    // of this topic takes it back.
    void send_still(const std::string &topic, const std::string &jpeg, unsigned expiry);

    // Once: what the broker retains of what was subscribed to, when it has said that; nothing
    // before and after. Empty also where the account may not read it.
    std::optional<std::map<std::string, std::string>> take_retained();
    // What the spool brought of those when it was opened, which the broker may not have yet.
    const std::map<std::string, std::string> &spooled_states() const { return spooled_states_; }
    // Whether a command has come since this was asked last.
    bool take_command();

    struct Report {
        std::uint64_t frames_sent = 0;
        std::uint64_t frames_dropped = 0; // the broker was away, or slow
        std::uint64_t events_sent = 0;    // states too
        std::uint64_t events_dropped = 0; // too many while it was away
        std::uint64_t refused = 0;        // events and states, by the broker
        std::size_t waiting = 0;          // events and states
        bool connected = false;
        bool unreadable = false; // the broker refused to let what it retains be read
        bool unheard = true;     // nothing of what was subscribed to has come
        std::string status = {}; // of the connection, for people
        // Why it will never be connected, such as a wrong password. Not once it has been
        // connected: then it is the broker that may be at fault.
        std::optional<std::string> failure = {};
    };
    Report report() const;

    // Waits until all events and states are with the broker, or for `timeout`, and disconnects, so
    // that the last will is not published. What is sent later is lost. Reports how many events
    // were not sent, and whether they are in the spool.
    void finish(std::chrono::milliseconds timeout);

private:
    Broker(const Settings &settings, std::optional<Message> last_will, Subscriptions subscriptions);

    void open_spool();

    // The connecting thread's.
    void run();
    BrokerConnection::End run_connection(const std::string &host);
    void begin(BrokerConnection &connection, const std::string &host);
    void end_connection();
    bool must_go_on();
    std::chrono::seconds timeout() const;
    void on_connect() override;
    void on_publish(int number, const std::string &refusal) override;
    void on_subscribe(int number, bool is_granted) override;
    void on_message(const Message &message) override;

    void run_spool(); // the spool's thread
    void write_spool(std::unique_lock<std::mutex> &locked, bool is_last);

    // With the lock.
    std::chrono::milliseconds take_end(const std::string &host, const BrokerConnection::End &end);
    void read_retained();
    std::string address(const std::string &host) const;
    void send_waiting();
    bool send_frame(const Message &message);
    void count_refusal(const std::string &topic, const std::string &reason);

    const Settings settings_;
    const std::optional<Message> last_will_;
    const Subscriptions subscriptions_;
    std::map<std::string, std::string> spooled_states_;
    std::optional<Spool> spool_; // of its thread, once that runs

    // Of the connecting thread.
    std::size_t host_;                   // the one that is tried, or connected
    std::set<std::string> old_hosts_;    // which do not speak MQTT 5
    bool old_once_ = false;              // the next attempt is without it
    Backoff backoff_;                    // quick with several hosts
    std::size_t failed_hosts_ = 0;       // attempts in a row that were not connected
    std::size_t permanent_failures_ = 0; // in a row
    bool has_been_connected_ = false;

    mutable std::mutex lock_; // of all that follows; also held while the library is given a message
    std::condition_variable changed_;
    BrokerConnection *connection_ = nullptr; // while it runs
    Outbox outbox_;
    std::set<int> frames_; // on their way, by the library's numbers
    Report report_;
    std::map<std::string, std::set<std::string>> said_; // of hosts, since the last connection
    std::chrono::steady_clock::time_point answered_at_; // or the first on its way was sent
    std::size_t still_on_way_ = 0;                      // bytes
    std::size_t largest_still_ = 0;
    std::chrono::steady_clock::time_point still_cut_at_; // since then, for a while
    bool has_answered_ = false;                          // to a message of this connection
    std::uint64_t oldest_ = 0;  // number of the oldest event when the spool was written last
    std::uint64_t spooled_ = 0; // number of the newest event that the spool has
    bool has_command_ = false;
    bool stop_ = false;
    bool ended_ = false; // the connecting thread has
    bool spool_ended_ = true;

    std::thread thread_; // of its user
    std::thread spool_thread_;

    // Reading what is retained.
    std::map<std::string, std::string> retained_;
    bool has_read_all_ = false;
    int cut_readings_ = 0;                              // connections that ended before an answer
    std::set<int> subscribing_;                         // not yet answered
    std::chrono::steady_clock::time_point retained_at_; // when something of it came last
    enum class Reading { NotYet, Runs, Done } reading_ = Reading::NotYet;
};

} // namespace va::mqtt
