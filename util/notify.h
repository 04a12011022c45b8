#pragma once

#include "util/fd.h"

#include <array>
#include <chrono>
#include <string_view>

#include <sys/socket.h>
#include <sys/un.h>

// What a program tells the supervisor that started it, as systemd reads it: datagrams with lines
// such as READY=1 to the Unix-domain socket that the environment names in NOTIFY_SOCKET, a path or,
// behind '@', an abstract name. One thread's.
class Notifier
{
public:
    // Is handed a sentence for people; keeps errno or not.
    using Complain = void (*)(const char *text);

    // Takes NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID out of the environment, so that no child
    // speaks for the program. Complains of what keeps the socket from being used.
    explicit Notifier(Complain complain);

    bool wanted() const { return static_cast<bool>(socket_); }

    // Within which the supervisor wants signs of life of this process; zero: it wants none.
    std::chrono::microseconds interval() const { return interval_; }

    // Tells what is news: READY=1 the first time, STATUS= when it is another than the one told
    // last, WATCHDOG=1 with `lives`, when signs of life are wanted. What could not be sent is news
    // again. A status is cut after 500 characters.
    void tell(std::string_view status, bool lives);

    // Sends one datagram, without waiting. False when it was not sent: nothing is wanted, or the
    // supervisor is behind or gone, which is complained of once until one has been sent again.
    bool send(std::string_view lines);

private:
    bool set_address(std::string_view name);

    Complain complain_;
    Fd socket_; // none: nobody wants to know
    sockaddr_un address_{};
    socklen_t length_ = 0;
    std::chrono::microseconds interval_;
    bool failing_ = false;
    bool ready_told_ = false;
    std::array<char, 500> told_{}; // of the status, as far as told_size_
    std::size_t told_size_ = 0;
};
