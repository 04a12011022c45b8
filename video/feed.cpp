#include "video/feed.h"

#include "video/say.h"

#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr char standard_output[] = "-";

constexpr int stop_interval_ms = 100; // how late a stop request is seen

} // namespace

Feed::Feed(std::string path, std::function<bool()> is_stopped)
    : path_(std::move(path)), is_stopped_(std::move(is_stopped))
{
}

void Feed::say_once(const std::string &text)
{
    if (text != said_)
        say("%s", text.c_str());
    said_ = text;
}

bool Feed::open()
{
    if (path_ == standard_output) {
        fd_ = Fd(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
        return static_cast<bool>(fd_);
    }
    // Fails with ENXIO while nobody reads the FIFO.
    fd_ = Fd(::open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status = {};
    hopeless_ = (!fd_ && errno == EISDIR) ||
                (fd_ && fstat(fd_.get(), &status) == 0 && !S_ISFIFO(status.st_mode));
    if (hopeless_)
        fd_.reset();
    return static_cast<bool>(fd_);
}

bool Feed::connect()
{
    if (fd_)
        return true;
    if (open()) {
        if (!said_.empty())
            say_once(path_ + " is read");
        return true;
    }
    if (hopeless_)
        say_once(path_ + " is no FIFO");
    else if (errno == ENOENT || errno == ENXIO)
        say_once("nobody reads " + path_ + " yet");
    else
        say_once("cannot open " + path_ + ": " + std::generic_category().message(errno));
    return false;
}

bool Feed::wait_for_room() const
{
    pollfd polled{fd_.get(), POLLOUT, 0};
    while (poll(&polled, 1, stop_interval_ms) <= 0) {
        if (is_stopped_())
            return false;
    }
    return true;
}

bool Feed::send(const std::string &text)
{
    for (std::string_view rest = text; !rest.empty();) {
        const ssize_t written = write(fd_.get(), rest.data(), rest.size());
        if (written >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(written));
        } else if (!is_stopped_() && (errno == EINTR || (errno == EAGAIN && wait_for_room()))) {
            continue;
        } else {
            if (!is_stopped_())
                say_once("nobody reads " + path_ + " any more");
            hopeless_ = path_ == standard_output;
            fd_.reset();
            return false;
        }
    }
    return true;
}
