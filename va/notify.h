#pragma once

#include "util/fd.h"

#include <string_view>

#include <sys/socket.h>
#include <sys/un.h>

// Datagrams to the supervisor that started the daemon, as systemd reads them: lines such as READY=1
// to the Unix-domain socket that the environment names in NOTIFY_SOCKET, a path or, behind '@', an
// abstract name. Main thread.
class Notifier
{
public:
    // Takes the variable out of the environment, so that no child speaks for the daemon. Logs what
    // keeps a socket from being used.
    Notifier();

    bool wanted() const { return static_cast<bool>(socket_); }

    // Sends one datagram, without waiting. False when it was not sent: nothing is wanted, or the
    // supervisor is behind or gone, which is logged once until one has been sent again.
    bool send(std::string_view lines);

private:
    bool set_address(std::string_view name);

    Fd socket_; // none: nobody wants to know
    sockaddr_un address_{};
    socklen_t length_ = 0;
    bool failing_ = false;
};
