#pragma once

#include "mqtt/outbox.h"
#include "mqtt/settings.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

struct mosquitto;

namespace va::mqtt
{

enum class Protocol { V5, V3_1_1 };

// One connection to one host, from the attempt to its end.
class BrokerConnection
{
public:
    // What the one who runs it is told, in its thread. Numbers are those of publish() and
    // subscribe().
    class User
    {
    public:
        virtual void on_connect() = 0;
        // `refusal`: why the broker did not take it, where it says so; empty: it did.
        virtual void on_publish(int number, const std::string &refusal) = 0;
        virtual void on_subscribe(int number, bool is_granted) = 0;
        virtual void on_message(const Message &message) = 0;

    protected:
        ~User() = default;
    };

    // How it ended, and whether it ever was one.
    struct End {
        std::string why;                       // for people
        std::chrono::milliseconds connected{}; // for how long it was connected
        bool is_permanent = false;             // each attempt with these settings will end so
        bool is_protocol = false;              // the broker does not speak this one
        bool is_unanswered = false;            // it was closed without an answer to MQTT 5
    };

    // `last_will` is what the broker publishes when the connection breaks. Throws
    // std::runtime_error and std::system_error when a file of the settings cannot be used.
    BrokerConnection(const Settings &settings, std::string host, Protocol protocol,
                     const std::optional<Message> &last_will, User &user);
    ~BrokerConnection();

    // Connects, and waits for the end. `timeout` is how long each address of the host may take to
    // answer, and then the broker. The library's own loop ends for good at some errors, and does
    // not say at which.
    End run(const std::function<bool()> &must_go_on, std::chrono::seconds timeout);

    Protocol protocol() const { return protocol_; }

    // Any thread.

    struct Sending {
        int number = 0; // 0: it is not on its way
        std::string refusal =
            {}; // why it never will be; empty: it may be, with the next connection
    };
    Sending publish(const Message &message, int qos);
    int subscribe(const std::string &filter); // its number; what comes has quality of service 0
    void unsubscribe(const std::string &filter);
    int unsent_bytes() const; // which the network has not taken

    void disconnect(); // ends it once all is sent; without its last will

private:
    static BrokerConnection &of(void *object) { return *static_cast<BrokerConnection *>(object); }

    void set_last_will(const Message &message);
    void set_callbacks();
    int connect(std::chrono::seconds timeout);
    void answered(int answer);
    void set_error(const std::string &text);
    std::string take_error(int result, int error);

    const Settings &settings_;
    const std::string host_;
    const Protocol protocol_;
    User &user_;
    std::unique_ptr<mosquitto, void (*)(mosquitto *)> handle_;
    End end_; // of the thread that runs it, as all that follows
    std::optional<std::chrono::steady_clock::time_point> connected_since_;

    std::mutex error_lock_; // the library may report one to any thread
    std::string error_;     // the first one, which says most
};

} // namespace va::mqtt
