#include "platform/sim/feed_input.h"

#include "platform/sim/text.h"

#include <cerrno>
#include <cstdint>
#include <iterator>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

constexpr int pause_ms = 1000; // until it is looked again what there is
constexpr int wrong_kind = ENOTSUP;
constexpr const char *nobody_writes = "nobody writes";

std::string state_of(int error)
{
    switch (error) {
    case ECONNREFUSED:
    case EAGAIN: // as many as the listener lets wait
        return nobody_writes;
    case wrong_kind:
        return "neither a FIFO nor a socket";
    default:
        return std::generic_category().message(error);
    }
}

bool is_fifo(const Fd &fd)
{
    struct stat status {
    };
    return fstat(fd.get(), &status) == 0 && S_ISFIFO(status.st_mode);
}

Fd open_fifo(const std::string &path)
{
    Fd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (fd && !is_fifo(fd)) {
        fd.reset();
        errno = wrong_kind;
    }
    return fd;
}

Fd make_fifo(const std::string &path)
{
    constexpr mode_t owner_only = 0600;
    return mkfifo(path.c_str(), owner_only) == 0 ? open_fifo(path) : Fd();
}

Fd connect_to(const std::string &path)
{
    sockaddr_un address{AF_UNIX, {}};
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return {};
    }
    path.copy(address.sun_path, path.size());
    Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (fd && connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == -1)
        fd.reset();
    return fd;
}

} // namespace

FeedInput::FeedInput(std::string path)
    : path_(std::move(path)), stop_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!stop_)
        throw std::system_error(errno, std::generic_category());
}

FeedInput::Event FeedInput::read(std::span<char> buffer, std::size_t &count)
{
    for (;;) {
        if (std::exchange(to_be_opened_, false))
            open();
        switch (wait()) {
        case Ready::Stop:
            return Event::Stopped;
        case Ready::Nothing:
            if (fd_)
                say_once(nobody_writes);
            to_be_opened_ = true; // what is at the path may be another by now
            break;
        case Ready::Input:
            if (const auto event = read_input(buffer, count))
                return *event;
            break;
        }
    }
}

void FeedInput::stop()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(stop_.get(), &one, sizeof one);
}

// A FIFO is closed after it was opened again, so that nothing is lost of what is in it.
void FeedInput::open()
{
    Fd opened = open_fifo(path_);
    if (!opened && errno == ENOENT)
        opened = make_fifo(path_);
    is_fifo_ = static_cast<bool>(opened);
    if (!opened && errno == ENXIO) // as for a socket
        opened = connect_to(path_);
    if (!opened)
        say_once(state_of(errno));
    fd_ = std::move(opened);
}

// A FIFO without a writer, and what could not be opened, is looked at anew after a pause.
FeedInput::Ready FeedInput::wait() const
{
    const bool lasts = fd_ && (written_ || !is_fifo_);
    pollfd sources[] = {{stop_.get(), POLLIN, 0}, {fd_.get(), POLLIN, 0}};
    poll(sources, std::size(sources), lasts ? -1 : pause_ms);
    if (sources[0].revents)
        return Ready::Stop;
    return sources[1].revents ? Ready::Input : Ready::Nothing;
}

std::optional<FeedInput::Event> FeedInput::read_input(std::span<char> buffer, std::size_t &count)
{
    const ssize_t got = ::read(fd_.get(), buffer.data(), buffer.size());
    if (got > 0) {
        count = static_cast<std::size_t>(got);
        written_ = true;
        if (!said_.empty())
            say_once("somebody writes");
        return Event::Bytes;
    }
    if (got == -1 && errno == EAGAIN)
        return {};
    const bool was_written = std::exchange(written_, false);
    // The FIFO may have its next writer; who listens and ends each connection is not asked at once.
    to_be_opened_ = is_fifo_ || was_written;
    if (!is_fifo_)
        fd_.reset();
    return was_written ? std::optional(Event::WriterGone) : std::nullopt;
}

void FeedInput::say_once(const std::string &state)
{
    if (said_ == state)
        return;
    said_ = state;
    say("feed %s: %s", path_.c_str(), state.c_str());
}
