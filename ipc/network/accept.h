#pragma once

#include "ipc/network/fd.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/socket.h>

// The next connection, close-on-exec, and non-blocking unless `flags` say otherwise; empty, with
// errno set, on failure.
inline Fd accept_connection(int listener, int flags = SOCK_NONBLOCK)
{
    return Fd(accept4(listener, nullptr, nullptr, flags | SOCK_CLOEXEC));
}

// A connection that cannot be accepted because descriptors ran out stays pending and keeps its
// listener readable, so a loop would spin on it. The server holds a descriptor back, and gives it
// up for as long as it takes to accept such a connection and close it.
class SpareFd
{
public:
    void hold() { fd_.reset(open("/dev/null", O_RDONLY | O_CLOEXEC)); }

    // After a failed accept, with its errno.
    void drop_connection_if_exhausted(int listener, int error)
    {
        if (error != EMFILE && error != ENFILE)
            return;
        fd_.reset();
        accept_connection(listener).reset();
        hold();
    }

private:
    Fd fd_;
};
