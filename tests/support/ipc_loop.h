#pragma once

#include "event/event.h"
#include "ipc/network/socket.h"
#include "tests/support/wait.h"
#include "util/fd.h"

#include <cerrno>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>

inline std::ptrdiff_t open_descriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// Runs one cycle of the event loop, without waiting: an always event stays in the loop.
inline void cycle()
{
    [[maybe_unused]] static event *const never_wait = add_always_event(
        0, [](event_info *, void *) { return 0; }, nullptr);
    event_loop(1);
}

template <class Condition>
bool cycle_until(Condition condition)
{
    return wait_until([&] { return condition() || (cycle(), condition()); });
}

// Up to `limit` bytes of what has arrived.
inline std::string arrived(const Fd &fd, std::size_t limit = 1 << 16)
{
    std::string bytes(limit, '\0');
    const ssize_t got = recv(fd.get(), bytes.data(), limit, MSG_DONTWAIT);
    bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return bytes;
}

// A client of a Unix-domain server that runs in this thread's event loop: it never waits.
struct LoopClient {
    explicit LoopClient(const std::string &path)
    {
        int connected = -1;
        unix_domain_socket_connect(&connected, path.c_str());
        fd = Fd(connected);
        cycle();
    }
    // Returns the bytes sent, or -1.
    ssize_t send(const std::string &bytes) const
    {
        return ::send(fd.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    std::string &receive(std::size_t limit = 1 << 16) { return received += arrived(fd, limit); }
    // Whether the server has closed, and nothing is left to receive.
    bool ended() const
    {
        char next = 0;
        const ssize_t got = recv(fd.get(), &next, 1, MSG_DONTWAIT | MSG_PEEK);
        return got == 0 || (got < 0 && errno != EAGAIN);
    }

    Fd fd;
    std::string received;
};

// While it lives, one descriptor more can be opened.
struct OneDescriptor {
    OneDescriptor()
    {
        getrlimit(RLIMIT_NOFILE, &saved);
        const auto next = static_cast<rlim_t>(Fd(dup(STDIN_FILENO)).get());
        const rlimit lowered{next + 1, saved.rlim_max};
        setrlimit(RLIMIT_NOFILE, &lowered);
    }
    ~OneDescriptor() { setrlimit(RLIMIT_NOFILE, &saved); }

    rlimit saved{};
};

// Has a client connect to the server while no descriptor is left, and then be served. Returns what
// is printed until the pause of its accepts ends.
template <class Capture, class Served>
std::string failed_accept(const std::string &path, Capture capture, Served served)
{
    std::optional<LoopClient> client;
    std::string output = capture([&] {
        const OneDescriptor one; // the client's
        client.emplace(path);
        cycle();
    });
    output += client->ended() || !cycle_until(served) ? "not served" : "";
    return output;
}
