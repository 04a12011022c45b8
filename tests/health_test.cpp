#include "tests/support/daemon.h"
#include "tests/support/wait.h"

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

namespace
{

using std::string;

const string runs = "STATUS=Analytics run.\n";
constexpr int interval_ms = 200; // of the watchdog

// Receives what the daemons started meanwhile have to say.
class Supervisor
{
public:
    explicit Supervisor(const string &name) : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, name.size());
        if (name.starts_with('@'))
            address.sun_path[0] = '\0';
        const auto length = offsetof(sockaddr_un, sun_path) + name.size();
        bound_ = bind(socket_.get(), reinterpret_cast<sockaddr *>(&address),
                      static_cast<socklen_t>(length)) == 0;
        setenv("NOTIFY_SOCKET", name.c_str(), 1);
        setenv("WATCHDOG_USEC", std::to_string(interval_ms * 1000).c_str(), 1);
    }
    ~Supervisor()
    {
        for (const char *variable : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
            unsetenv(variable);
    }

    bool is_bound() const { return bound_; }

    // One datagram; empty when none comes in time.
    string next(int bound_ms = 20'000) const
    {
        char text[1024];
        pollfd readable{socket_.get(), POLLIN, 0};
        const ssize_t length =
            poll(&readable, 1, bound_ms) > 0 ? recv(socket_.get(), text, sizeof text, 0) : 0;
        return {text, static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
    }

    // Whether such a datagram comes; those before it are dropped.
    bool hears(const string &text) const
    {
        return wait_until([&] { return next().find(text) != string::npos; });
    }

    // Whether nothing more comes in the place of several signs of life.
    bool hears_nothing() const { return next(5 * interval_ms).empty(); }

private:
    Fd socket_;
    bool bound_;
};

struct HealthTest : testing::Test {
    DaemonFiles files;
};

TEST_F(HealthTest, TellsTheSupervisorOfEachStep)
{
    const string names[] = {files.file("notify"), "@va-test-" + std::to_string(getpid())};
    for (const string &name : names) {
        SCOPED_TRACE(name);
        const Supervisor supervisor(name);
        ASSERT_TRUE(supervisor.is_bound());
        Daemon daemon(files, {"-t"});
        const string first = supervisor.next();
        EXPECT_TRUE(first.starts_with("READY=1\nSTATUS=")) << first;
        EXPECT_TRUE(std::filesystem::exists(files.file("run/ctrl")));
        EXPECT_TRUE(first.find(runs) != string::npos || supervisor.hears(runs));
        EXPECT_TRUE(supervisor.hears("WATCHDOG=1\n"));
        EXPECT_TRUE(daemon.stop());
        EXPECT_TRUE(supervisor.hears("STOPPING=1\n"));
        EXPECT_TRUE(supervisor.hears_nothing());
    }
}

TEST_F(HealthTest, GivesNoSignOfLifeWithoutAnalytics)
{
    const Supervisor supervisor(files.file("notify"));
    files.write("scene", "fail ne3_val_ta_get_data 3 5\n");
    Daemon daemon(files, {"-t"});
    EXPECT_TRUE(supervisor.hears(
        "STATUS=Runs without analytics: ta: ne3_val_ta_get_data failed, code 5\n"));
    EXPECT_TRUE(supervisor.hears_nothing());
    EXPECT_NE(string::npos, daemon.log().find("VA: Analytics have ended: ta: ne3_val_ta_get_data"));
    EXPECT_TRUE(daemon.stop());
}

TEST_F(HealthTest, GivesNoSignOfLifeWhileItIsStopped)
{
    const Supervisor supervisor(files.file("notify"));
    Daemon daemon(files, {"-t"});
    EXPECT_TRUE(supervisor.hears("WATCHDOG=1\n"));
    daemon.signal(SIGSTOP);
    ASSERT_EQ(daemon.pid(), waitpid(daemon.pid(), nullptr, WUNTRACED));
    while (!supervisor.next(0).empty()) {
    }
    EXPECT_TRUE(supervisor.hears_nothing());
    daemon.signal(SIGCONT);
    EXPECT_TRUE(supervisor.hears("WATCHDOG=1\n"));
    EXPECT_TRUE(daemon.stop());
    EXPECT_EQ(string::npos, daemon.log().find("have ended")); // told to
}

TEST_F(HealthTest, WatchesForNobodyElse)
{
    const Supervisor supervisor(files.file("notify"));
    setenv("WATCHDOG_PID", "1", 1);
    Daemon daemon(files, {"-t"});
    EXPECT_TRUE(supervisor.hears(runs));
    EXPECT_TRUE(supervisor.hears_nothing());
    EXPECT_TRUE(daemon.stop());
    setenv("NOTIFY_SOCKET", "relative", 1);
    Daemon other(files, {"-x"}, "other");
    EXPECT_TRUE(other.wait_for_log("VA: NOTIFY_SOCKET=relative names no socket"));
}

} // namespace
