#pragma once

#include "event/event.h"
#include "ipc/network/fd.h"
#include "ipc/network/socket.h"
#include "tests/support/wait.h"

#include <cerrno>
#include <filesystem>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>

inline auto open_descriptors()
{
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return std::distance(begin(entries), end(entries));
}

// Runs one cycle of the event loop, without waiting: an always event stays in the loop.
inline void cycle()
{
    static event *const never_wait = add_always_event(
        0, [](event_info *, void *) { return 0; }, nullptr);
    if (never_wait)
        event_loop(1);
}

template <class Condition>
bool cycle_until(Condition condition)
{
    return wait_until([&] { return condition() || (cycle(), condition()); });
}

// A client of a Unix-domain server that runs in this thread's event loop: it never waits.
class LoopClient
{
public:
    explicit LoopClient(const std::string &path)
    {
        int fd = -1;
        unix_domain_socket_connect(&fd, path.c_str());
        fd_ = Fd(fd);
        cycle();
    }

    int fd() const { return fd_.get(); }
    void close() { fd_.reset(); }
    bool ended() const { return ended_; }
    const std::string &received() const { return received_; }

    // Returns the bytes sent, or -1.
    ssize_t send(std::string_view bytes) const
    {
        return ::send(fd(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }

    // Takes in up to `limit` bytes of what has arrived.
    LoopClient &receive(std::size_t limit = 1 << 20)
    {
        std::vector<char> bytes(limit);
        const ssize_t got = recv(fd(), bytes.data(), limit, MSG_DONTWAIT);
        if (got > 0)
            received_.append(bytes.data(), static_cast<std::size_t>(got));
        ended_ = got == 0 || (got < 0 && errno != EAGAIN);
        return *this;
    }

private:
    Fd fd_;
    std::string received_;
    bool ended_ = false;
};

// Takes every descriptor below `limit`, and no more can be opened, but for the `left` highest ones.
class FewDescriptors
{
public:
    explicit FewDescriptors(rlim_t limit, int left = 0)
    {
        getrlimit(RLIMIT_NOFILE, &saved_);
        const rlimit lowered{limit, saved_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &lowered);
        for (Fd fd = open_one(); fd; fd = open_one())
            taken_.push_back(std::move(fd));
        while (left-- > 0)
            taken_.pop_back();
    }
    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &saved_); }
    FewDescriptors(const FewDescriptors &) = delete;
    FewDescriptors &operator=(const FewDescriptors &) = delete;

private:
    static Fd open_one() { return Fd(open("/dev/null", O_RDONLY | O_CLOEXEC)); }

    rlimit saved_{};
    std::vector<Fd> taken_;
};
