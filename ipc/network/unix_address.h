#pragma once

#include <cerrno>
#include <cstring>
#include <optional>
#include <string_view>

#include <sys/socket.h>
#include <sys/un.h>

// The address of a Unix-domain socket. Private to this tree, as fd.h is.

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

} // namespace va
