#pragma once

#include "util/fd.h"

#include <array>
#include <chrono>
#include <string_view>

#include <sys/socket.h>
#include <sys/un.h>

// Notifies the supervisor that started the program, as systemd reads it: datagrams with lines
// such as READY=1 to the Unix-domain socket that the environment names in NOTIFY_SOCKET, a path or,
// behind '@', an abstract name. One thread's.
class Notifier
{
public:
    // Is handed a sentence for people; keeps errno or not.
    using Complain = void (*)(const char *text);

    // Takes NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID out of the environment, so that no child
    // speaks for the program. Complains about what keeps the socket from being used.
    explicit Notifier(Complain complain);

    bool wanted() const { return static_cast<bool>(socket_); }

    // Within which the supervisor wants signs of life of this process; zero: it wants none.
    std::chrono::microseconds interval() const { return interval_; }

    // Sends what has changed: READY=1 the first time, STATUS= when it differs from the last one
    // sent, WATCHDOG=1 with `alive`, when signs of life are wanted. What could not be sent is sent
    // with the next call. A status is cut after 500 characters.
    void notify(std::string_view status, bool alive);

    // Sends one datagram, without waiting. False when it was not sent: nothing is wanted, or the
    // supervisor is slow or gone, which is complained about once until one has been sent again.
    bool send(std::string_view lines);

private:
    bool set_address(std::string_view name);

    Complain complain_;
    Fd socket_; // none: no supervisor
    sockaddr_un address_{};
    socklen_t length_ = 0;
    std::chrono::microseconds interval_;
    bool failing_ = false;
    bool ready_sent_ = false;
    std::array<char, 500> last_{}; // of the status, as far as last_size_
    std::size_t last_size_ = 0;
};
