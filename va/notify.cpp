#include "va/notify.h"

#include "va/log.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr char variable[] = "NOTIFY_SOCKET";

} // namespace

Notifier::Notifier()
{
    const char *const name = std::getenv(variable);
    if (!name)
        return;
    if (!set_address(name))
        log_error("%s=%s names no socket: the supervisor is not notified.", variable, name);
    else if (socket_.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)); !socket_)
        log_error("No socket to notify the supervisor: %s.", std::strerror(errno));
    unsetenv(variable);
}

bool Notifier::send(std::string_view lines)
{
    if (!socket_)
        return false;
    const auto *address = reinterpret_cast<const sockaddr *>(&address_);
    const bool sent = sendto(socket_.get(), lines.data(), lines.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                             address, length_) >= 0;
    if (!sent && !failing_)
        log_error("Can't notify the supervisor: %s.", std::strerror(errno));
    failing_ = !sent;
    return sent;
}

bool Notifier::set_address(std::string_view name)
{
    const bool abstract = name.starts_with('@');
    // A path has a terminating zero, an abstract name a zero in front and its length behind.
    const std::size_t size = name.size() + (abstract ? 0 : 1);
    if ((!abstract && !name.starts_with('/')) || name.size() < 2 || size > sizeof address_.sun_path)
        return false;
    address_.sun_family = AF_UNIX;
    name.copy(address_.sun_path, name.size());
    if (abstract)
        address_.sun_path[0] = '\0';
    length_ = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + size);
    return true;
}
