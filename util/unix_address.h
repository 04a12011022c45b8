#pragma once

#include "util/fd.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <string_view>

#include <sys/socket.h>
#include <sys/un.h>

// Where a Unix-domain socket is, and a connection to it. Private to this tree, as fd.h is.

namespace va
{

// Empty, with errno ENAMETOOLONG, when the path does not fit into an address.
inline std::optional<sockaddr_un> unix_address(std::string_view path)
{
    sockaddr_un address{};
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return std::nullopt;
    }
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    return address;
}

// Connects a non-blocking, close-on-exec stream socket: connecting to a server that does not accept
// would wait once its backlog is full. Empty, with errno set, on failure.
inline Fd connect_unix(std::string_view path)
{
    const auto address = unix_address(path);
    if (!address)
        return Fd();
    Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (fd &&
        connect(fd.get(), reinterpret_cast<const sockaddr *>(&*address), sizeof *address) == -1)
        fd.reset();
    return fd;
}

} // namespace va
