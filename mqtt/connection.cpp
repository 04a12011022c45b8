#include "mqtt/connection.h"

#include "mqtt/credentials.h"
#include "tools/common/still_file.h"
#include "util/text.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <iterator>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <linux/sockios.h>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace va::mqtt
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr int loop_ms = 200; // the bound on noticing a stop; what is sent wakes the library

constexpr std::chrono::milliseconds lost_after{12000}; // a packet of data had no answer

// How long a broker of MQTT 5 waits for a camera that has gone before it publishes the last will,
// and keeps its session for that.
constexpr std::uint32_t will_delay = 10; // seconds

// Of what the broker may send, bytes: a still, which --forget has to know of.
constexpr std::uint32_t largest_packet = StillFile::LARGEST + 65536;

// Interrupts what this thread waits for in a system call: the library has no timeout for connect(),
// which else takes two minutes where packets vanish, for each address of a host.
class CallTimeout
{
public:
    explicit CallTimeout(std::chrono::seconds timeout)
    {
        struct sigaction action = {}; // without SA_RESTART
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, nullptr);
        sigevent event = {};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = SIGALRM;
        event._sigev_un._tid = gettid();
        const timespec time{static_cast<time_t>(timeout.count()), 0};
        const itimerspec times{time, time};
        is_set_ = timer_create(CLOCK_MONOTONIC, &event, &timer_) == 0 &&
                  timer_settime(timer_, 0, &times, nullptr) == 0;
    }
    CallTimeout(const CallTimeout &) = delete;
    CallTimeout &operator=(const CallTimeout &) = delete;
    ~CallTimeout()
    {
        if (is_set_)
            timer_delete(timer_);
    }

private:
    timer_t timer_{};
    bool is_set_ = false;
};

// Properties of MQTT 5; those whose value is 0 are not there.
class Properties
{
public:
    Properties() = default;
    Properties(int name, std::uint32_t value) { add(name, value); }
    Properties(const Properties &) = delete;
    Properties &operator=(const Properties &) = delete;
    ~Properties() { mosquitto_property_free_all(&list_); }

    void add(int name, std::uint32_t value)
    {
        if (value > 0 && mosquitto_property_add_int32(&list_, name, value) != MOSQ_ERR_SUCCESS)
            throw std::bad_alloc();
    }

    const mosquitto_property *get() const { return list_; }
    mosquitto_property *release() { return std::exchange(list_, nullptr); }

private:
    mosquitto_property *list_ = nullptr;
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

// Whether a broker that gives this answer may give another one later.
bool may_change(int answer)
{
    constexpr int server_unavailable_v3 = 3;
    constexpr int answers[] = {
        server_unavailable_v3,      MQTT_RC_UNSPECIFIED,  MQTT_RC_IMPLEMENTATION_SPECIFIC,
        MQTT_RC_SERVER_UNAVAILABLE, MQTT_RC_SERVER_BUSY,  MQTT_RC_QUOTA_EXCEEDED,
        MQTT_RC_USE_ANOTHER_SERVER, MQTT_RC_SERVER_MOVED, MQTT_RC_CONNECTION_RATE_EXCEEDED};
    return std::ranges::find(answers, answer) != std::end(answers);
}

bool is_refusal(int reason)
{
    return reason >= MQTT_RC_UNSPECIFIED;
}

std::string words(int reason)
{
    return is_refusal(reason) ? mosquitto_reason_string(reason) : mosquitto_connack_string(reason);
}

// Whether the session may go on, without which the last will has no delay. With quality of service
// 2 it must not: a broker would take a number that is used anew for a message that it has.
bool keeps_session(const Settings &settings, Protocol protocol)
{
    return protocol == Protocol::V5 && settings.qos < 2;
}

} // namespace

BrokerConnection::BrokerConnection(const Settings &settings, std::string host, Protocol protocol,
                                   const std::optional<Message> &last_will, User &user)
    : settings_(settings),
      host_(std::move(host)),
      protocol_(protocol),
      user_(user),
      handle_(mosquitto_new(settings.client_id.c_str(), !keeps_session(settings, protocol), this),
              mosquitto_destroy)
{
    mosquitto *const handle = handle_.get();
    if (!handle)
        throw std::bad_alloc();
    mosquitto_int_option(handle, MOSQ_OPT_PROTOCOL_VERSION,
                         protocol == Protocol::V5 ? MQTT_PROTOCOL_V5 : MQTT_PROTOCOL_V311);
    mosquitto_int_option(handle, MOSQ_OPT_TCP_NODELAY, 1); // else what follows waits for 40 ms
    mosquitto_threaded_set(handle, true);
    if (last_will)
        set_last_will(*last_will);
    set_credentials(handle, settings);
    set_callbacks();
}

BrokerConnection::~BrokerConnection() = default;

BrokerConnection::End BrokerConnection::run(const std::function<bool()> &must_go_on,
                                            std::chrono::seconds timeout)
{
    errno = 0;
    int result = connect(timeout);
    const Clock::time_point deadline = Clock::now() + timeout;
    while (result == MOSQ_ERR_SUCCESS && must_go_on()) {
        errno = 0;
        result = !connected_since_ && Clock::now() > deadline
                     ? static_cast<int>(MOSQ_ERR_KEEPALIVE)
                     : mosquitto_loop(handle_.get(), loop_ms, 1);
    }
    if (connected_since_)
        end_.connected =
            std::chrono::ceil<std::chrono::milliseconds>(Clock::now() - *connected_since_);
    else if (protocol_ == Protocol::V5 && result == MOSQ_ERR_CONN_LOST)
        end_.is_unanswered = true; // it may know no better answer to this protocol
    end_.why = take_error(result == MOSQ_ERR_SUCCESS ? MOSQ_ERR_KEEPALIVE : result, errno);
    end_.is_permanent = end_.is_permanent || is_permanent(end_.why);
    return end_;
}

int BrokerConnection::connect(std::chrono::seconds timeout)
{
    Properties properties;
    if (keeps_session(settings_, protocol_))
        properties.add(MQTT_PROP_SESSION_EXPIRY_INTERVAL, will_delay);
    if (protocol_ == Protocol::V5)
        properties.add(MQTT_PROP_MAXIMUM_PACKET_SIZE, largest_packet);
    const CallTimeout call_timeout(timeout);
    const int result = mosquitto_connect_bind_v5(handle_.get(), host_.c_str(), settings_.port,
                                                 settings_.keep_alive, nullptr, properties.get());
    const auto milliseconds = static_cast<unsigned>(lost_after.count());
    if (result == MOSQ_ERR_SUCCESS)
        setsockopt(mosquitto_socket(handle_.get()), IPPROTO_TCP, TCP_USER_TIMEOUT, &milliseconds,
                   sizeof milliseconds);
    return result;
}

BrokerConnection::Sending BrokerConnection::publish(const Message &message, int qos)
{
    const Properties expiry(MQTT_PROP_MESSAGE_EXPIRY_INTERVAL,
                            protocol_ == Protocol::V5 ? message.expiry : 0);
    int number = 0;
    const int result = mosquitto_publish_v5(
        handle_.get(), &number, message.topic.c_str(), static_cast<int>(message.payload.size()),
        message.payload.data(), qos, message.retained, expiry.get());
    if (result == MOSQ_ERR_SUCCESS)
        return {.number = number};
    if (result == MOSQ_ERR_NO_CONN || result == MOSQ_ERR_CONN_LOST || result == MOSQ_ERR_ERRNO ||
        result == MOSQ_ERR_NOMEM)
        return {};
    return {.refusal = mosquitto_strerror(result)};
}

int BrokerConnection::subscribe(const std::string &filter)
{
    int number = 0;
    mosquitto_subscribe(handle_.get(), &number, filter.c_str(), 0);
    return number;
}

void BrokerConnection::unsubscribe(const std::string &filter)
{
    mosquitto_unsubscribe(handle_.get(), nullptr, filter.c_str());
}

int BrokerConnection::unsent_bytes() const
{
    int bytes = 0;
    ioctl(mosquitto_socket(handle_.get()), SIOCOUTQ, &bytes);
    return bytes;
}

void BrokerConnection::disconnect()
{
    mosquitto_disconnect(handle_.get());
}

void BrokerConnection::set_last_will(const Message &message)
{
    Properties delay(MQTT_PROP_WILL_DELAY_INTERVAL,
                     keeps_session(settings_, protocol_) ? will_delay : 0);
    mosquitto_property *const list = delay.release();
    if (mosquitto_will_set_v5(handle_.get(), message.topic.c_str(),
                              static_cast<int>(message.payload.size()), message.payload.data(), 1,
                              message.retained, list) != MOSQ_ERR_SUCCESS)
        throw std::runtime_error("the last will cannot be set");
}

void BrokerConnection::set_callbacks()
{
    mosquitto *const handle = handle_.get();
    mosquitto_connect_v5_callback_set(
        handle, [](mosquitto *, void *self, int answer, int, const mosquitto_property *) {
            of(self).answered(answer);
        });
    mosquitto_disconnect_v5_callback_set(
        handle, [](mosquitto *, void *self, int reason, const mosquitto_property *) {
            if (is_refusal(reason))
                of(self).set_error(words(reason));
        });
    mosquitto_publish_v5_callback_set(
        handle, [](mosquitto *, void *self, int number, int reason, const mosquitto_property *) {
            of(self).user_.on_publish(number, is_refusal(reason) ? words(reason) : "");
        });
    mosquitto_subscribe_callback_set(handle, [](mosquitto *, void *self, int number, int count,
                                                const int *granted) {
        const bool is_granted =
            std::all_of(granted, granted + count, [](int answer) { return !is_refusal(answer); });
        of(self).user_.on_subscribe(number, is_granted);
    });
    mosquitto_message_callback_set(
        handle, [](mosquitto *, void *self, const mosquitto_message *message) {
            const std::string payload(static_cast<const char *>(message->payload),
                                      static_cast<std::size_t>(message->payloadlen));
            of(self).user_.on_message({message->topic, payload, message->retain});
        });
    mosquitto_log_callback_set(handle, [](mosquitto *, void *self, int level, const char *text) {
        if (level == MOSQ_LOG_ERR)
            of(self).set_error(text);
    });
}

void BrokerConnection::answered(int answer)
{
    if (answer == 0) {
        connected_since_ = Clock::now();
        user_.on_connect();
        return;
    }
    set_error(words(answer));
    end_.is_protocol = protocol_ == Protocol::V5 && answer == MQTT_RC_UNSUPPORTED_PROTOCOL_VERSION;
    end_.is_permanent = !end_.is_protocol && !may_change(answer);
}

void BrokerConnection::set_error(const std::string &text)
{
    const std::scoped_lock locked(error_lock_);
    if (error_.empty())
        error_ = shortened(text);
}

std::string BrokerConnection::take_error(int result, int error)
{
    const std::scoped_lock locked(error_lock_);
    if (!error_.empty())
        return error_;
    if (result == MOSQ_ERR_EAI)
        return "its name is not found";
    if (result == MOSQ_ERR_KEEPALIVE || (result == MOSQ_ERR_ERRNO && error == EINTR))
        return "it does not answer";
    return shortened(result == MOSQ_ERR_ERRNO ? error_text(error) : mosquitto_strerror(result));
}

} // namespace va::mqtt
