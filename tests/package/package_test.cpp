#include "ipc/msg/msg.h"
#include "ipc/network/sck_svr.h"
#include "tests/support/ipc_loop.h"
#include "tests/support/temp_dir.h"

#include <array>
#include <csignal>
#include <fstream>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

namespace
{

// The example built against the installed package; killed when left running.
class OdClient
{
public:
    OdClient(std::vector<std::string> arguments, const std::string &output) : output_(output)
    {
        std::vector<char *> argv{const_cast<char *>("od_client")};
        for (std::string &argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
        EXPECT_EQ(posix_spawn(&pid_, OD_CLIENT, &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
    }
    ~OdClient()
    {
        if (pid_ <= 0)
            return;
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    OdClient(const OdClient &) = delete;
    OdClient &operator=(const OdClient &) = delete;

    std::string output() const
    {
        std::ostringstream text;
        text << std::ifstream(output_).rdbuf();
        return text.str();
    }
    // Runs the loop until it ends. Its exit status, or -1.
    int status()
    {
        int status = 0;
        if (!cycle_until([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }))
            return -1;
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    std::string output_;
    pid_t pid_ = -1;
};

// The servers the example talks to, in this thread's loop.
struct PackageTest : testing::Test {
    PackageTest()
    {
        EXPECT_EQ(sck_svr_init(&objects, od.c_str(), 65536), 0);
        msg_conf conf{};
        control.copy(conf.path, sizeof conf.path - 1);
        conf.mode = MSG_SOCKET;
        EXPECT_EQ(msg_init(&server, conf), 0);
        const auto count = [](void *calls, const char *, int) {
            return ++*static_cast<int *>(calls);
        };
        EXPECT_EQ(msg_register(server, "reconfig", count, &reconfigs), 0);
        EXPECT_EQ(msg_start(server), 0);
    }
    ~PackageTest() override
    {
        sck_svr_release(&objects);
        msg_release(&server);
        cycle();
    }

    void publish(unsigned count) const
    {
        std::array<std::uint32_t, 20> words{};
        std::iota(words.begin(), words.end(), 1);
        EXPECT_EQ(sck_svr_write(objects, words.data(), count * 40), 0);
    }
    bool has_client() const
    {
        return cycle_until([&] { return sck_svr_get_client_count(objects) == 1; });
    }

    TempDir dir;
    std::string od = dir.file("od");
    std::string control = dir.file("control");
    std::string output = dir.file("output");
    sck_svr_t *objects = nullptr;
    msg_handle *server = nullptr;
    int reconfigs = 0;
};

const std::string first = " 1 2 3 4 5 6 7 8 9 10\n";
const std::string second = " 11 12 13 14 15 16 17 18 19 20\n";

TEST_F(PackageTest, TheExamplePrintsObjects)
{
    OdClient client({"-n", "2", od}, output);
    ASSERT_TRUE(has_client());
    publish(2);
    publish(1);
    EXPECT_EQ(client.status(), 0);
    EXPECT_EQ(client.output(), "2 object(s)\n" + first + second + "1 object(s)\n" + first);
    EXPECT_EQ(reconfigs, 0);
}

TEST_F(PackageTest, TheExampleSendsReconfigAndEndsWithTheStream)
{
    OdClient client({"-c", control, od}, output);
    ASSERT_TRUE(has_client());
    EXPECT_TRUE(cycle_until(
        [&] { return client.output().find(control + ": close") != std::string::npos; }));
    EXPECT_NE(client.output().find("answer: OK\n"), std::string::npos);
    EXPECT_EQ(reconfigs, 1);
    sck_svr_release(&objects);
    EXPECT_EQ(client.status(), 1);
    EXPECT_NE(client.output().find("od_client: the stream has ended\n"), std::string::npos);
}

TEST_F(PackageTest, TheExampleSaysWhoDoesNotListen)
{
    const std::string nobody = dir.file("nobody");
    for (const std::vector<std::string> &arguments :
         {std::vector{nobody}, std::vector{std::string("-c"), nobody, od}}) {
        OdClient client(arguments, output);
        EXPECT_EQ(client.status(), 1);
        EXPECT_NE(client.output().find("od_client: nobody listens at " + nobody + "\n"),
                  std::string::npos);
    }
}

} // namespace
