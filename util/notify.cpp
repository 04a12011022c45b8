#include "util/notify.h"

#include "util/text.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include <unistd.h>

namespace
{

constexpr char variable[] = "NOTIFY_SOCKET";

// Nothing in place of what is not one number.
template <class Number>
std::optional<Number> take_number(const char *name)
{
    const char *const text = std::getenv(name);
    if (!text)
        return {};
    const auto number = va::number_in<Number>(text);
    unsetenv(name);
    return number;
}

std::chrono::microseconds take_interval()
{
    const bool for_another =
        std::getenv("WATCHDOG_PID") && take_number<pid_t>("WATCHDOG_PID") != getpid();
    const auto interval = take_number<std::int64_t>("WATCHDOG_USEC").value_or(0);
    return std::chrono::microseconds(for_another ? 0 : std::max<std::int64_t>(interval, 0));
}

} // namespace

Notifier::Notifier(Complain complain) : complain_(complain), interval_(take_interval())
{
    const char *const name = std::getenv(variable);
    if (!name)
        return;
    char text[256] = "";
    if (!set_address(name))
        std::snprintf(text, sizeof text, "%s=%s names no socket: the supervisor is not notified.",
                      variable, name);
    else if (socket_.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)); !socket_)
        std::snprintf(text, sizeof text, "No socket to notify the supervisor: %s.",
                      std::strerror(errno));
    if (*text)
        complain_(text);
    unsetenv(variable);
}

void Notifier::notify(std::string_view status, bool alive)
{
    status = status.substr(0, last_.size());
    const bool changed = !ready_sent_ || status != std::string_view(last_.data(), last_size_);
    alive = alive && interval_ > interval_.zero();
    if (!changed && !alive)
        return;
    char lines[600];
    const int size =
        std::snprintf(lines, sizeof lines, "%s%s%.*s%s%s", ready_sent_ ? "" : "READY=1\n",
                      changed ? "STATUS=" : "", changed ? static_cast<int>(status.size()) : 0,
                      status.data(), changed ? "\n" : "", alive ? "WATCHDOG=1\n" : "");
    if (!send({lines, static_cast<std::size_t>(size)}))
        return;
    ready_sent_ = true;
    last_size_ = status.copy(last_.data(), last_.size());
}

bool Notifier::send(std::string_view lines)
{
    if (!socket_)
        return false;
    const auto *address = reinterpret_cast<const sockaddr *>(&address_);
    const bool sent = sendto(socket_.get(), lines.data(), lines.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                             address, length_) >= 0;
    if (!sent && !failing_) {
        char text[256]; // allocates nothing: the daemon runs on when memory is short
        std::snprintf(text, sizeof text, "Can't notify the supervisor: %s.", std::strerror(errno));
        complain_(text);
    }
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
