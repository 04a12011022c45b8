#include "event/event.h"
#include "ipc/msg/msg.h"
#include "ipc/msg/msgcmd.h"
#include "tests/support/capture.h"
#include "tests/support/client_data.h"
#include "tests/support/interleave.h"
#include "tests/support/ipc_loop.h"
#include "tests/support/temp_dir.h"
#include "util/sequence_pool.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <functional>
#include <numeric>
#include <thread>

#include <gtest/gtest.h>

namespace
{

constexpr unsigned page = seqpool_page_size;
std::atomic<int> send_limit{INT_MAX}; // bytes a send takes at most

} // namespace

// A Unix-domain socket always takes a chunk as small as the client's whole.
ssize_t send(int fd, const void *data, size_t size, int flags)
{
    return sendto(fd, data, std::min(size, static_cast<size_t>(send_limit)), flags, nullptr, 0);
}

namespace
{

// A control-message server in the loop.
struct Server {
    explicit Server(const std::string &path)
    {
        msg_conf conf{"", MSG_SOCKET};
        path.copy(conf.path, sizeof conf.path - 1);
        const auto count = [](void *arg, const char *, int) { return ++*static_cast<int *>(arg); };
        msg_init(&handle, conf);
        msg_register(handle, "reconfig", count, &calls);
        EXPECT_EQ(msg_start(handle), 0);
    }
    ~Server() { msg_release(&handle); }

    int calls = 0;
    msg_handle *handle = nullptr;
};

struct Msgcmd : testing::Test {
    ~Msgcmd() override
    {
        send_limit = INT_MAX;
        msgcmd_release(&client);
        const Fd ready(open("/dev/null", O_WRONLY | O_CLOEXEC));
        const auto note = [](event_info *, void *served) {
            *static_cast<bool *>(served) = true;
            return 0;
        };
        bool served = false;
        add_fd_event(ready.get(), 1, EVENT_ONESHOT, note, &served);
        cycle();
        EXPECT_TRUE(served) << "waits for a closed descriptor";
    }
    void make_client(unsigned size)
    {
        stdout_of([&] { ASSERT_EQ(msgcmd_init(&client, path.c_str(), size), 0); });
        const auto read_cb = [](int count, const void *data, void *arg) {
            auto *const test = static_cast<Msgcmd *>(arg);
            test->log.append(static_cast<const char *>(data),
                             static_cast<unsigned>(std::max(count, 0)));
            if (count == 0)
                test->on_end();
        };
        const auto write_cb = [](int count, void *arg) {
            static_cast<Msgcmd *>(arg)->log += std::to_string(count) + " ";
        };
        msgcmd_setcb(client, read_cb, write_cb, this);
    }
    int write(const std::string &bytes) const
    {
        return msgcmd_noblock_write(client, bytes.data(), static_cast<unsigned>(bytes.size()));
    }
    std::string block_write(const std::string &bytes, int result) const
    {
        const auto length = static_cast<unsigned>(bytes.size());
        return stdout_of(
            [&] { EXPECT_EQ(msgcmd_block_write(path.c_str(), bytes.data(), length), result); });
    }

    TempDir dir;
    std::string path = dir.file("control");
    msgcmd *client = nullptr;
    std::string log; // the counts of the writes, and what was read
    std::function<void()> on_end;
};

TEST_F(Msgcmd, QueuedBytesGoOutInChunksOrAreLostWithTheirConnection)
{
    const Listener listener(path);
    make_client(20 * page - 1); // for 19 pages less a byte, more than a socket takes
    std::string bytes(19 * page - 1, '\0');
    std::iota(bytes.begin(), bytes.end(), '\0');
    EXPECT_EQ(write(bytes), 0);
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(write("x"), -1); }),
              "msgcmd_noblock_write: buffer size is not enough. data will be losed.\n");
    Fd connection = listener.accept();
    std::string received;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        cycle();
        received += arrived(connection, 1);
    }
    EXPECT_TRUE(received == bytes);
    EXPECT_EQ(get_event_enabled(client->write_event), 0);
    EXPECT_TRUE(log.starts_with("1024 1024 ") && log.ends_with("1024 1023 "));

    write(std::string(1024, 'c') + std::string(20, 'd'));
    send_limit = 10;
    const std::string lost = "data lose when write to " + path + "\n";
    EXPECT_EQ(stdout_of([] { cycle(), cycle(), cycle(); }), lost + lost);
    EXPECT_EQ(arrived(connection), "ccccccccccdddddddddd");

    send_limit = INT_MAX;

    EXPECT_EQ(write("dropped"), 0);
    connection.reset();
    EXPECT_EQ(stdout_of(cycle), path + ": close or error.\n");
    EXPECT_TRUE(log.ends_with(" 1023 10 10 -1 "));
    EXPECT_EQ(write("dropped"), 0);
    msgcmd_close(client);
    EXPECT_EQ(write("new"), 0);
    cycle();
    listener.accept(); // the closed one
    connection = listener.accept();
    EXPECT_EQ(arrived(connection), "new");
}

TEST_F(Msgcmd, ConnectsAgainForEveryItem)
{
    make_client(2 * page);
    const auto before = open_descriptors();
    EXPECT_EQ(write("reconfig\n"), -1);
    EXPECT_EQ(block_write("reconfig\n", -1), "");
    EXPECT_EQ(open_descriptors(), before);
    std::atomic<int> ended{0};
    on_end = [&] {
        if (ended == 199)
            msgcmd_release(&client);
        ++ended;
    };
    const Server server(path);
    const auto send_all = [&] {
        const std::jthread loop([](const std::stop_token &stop) {
            while (!stop.stop_requested())
                cycle();
        });
        for (int i = 1; i <= 200; ++i) {
            ASSERT_EQ(write("reconfig\n"), 0);
            ASSERT_TRUE(wait_until([&] { return ended == i; }));
        }
    };
    EXPECT_TRUE(stdout_of(send_all).ends_with(path + ": close or error.\n"));
    EXPECT_TRUE(log.ends_with("9 OK\n9 OK\n9 OK\n"));
    EXPECT_EQ(block_write("reconfig\n", 0), "");
    EXPECT_TRUE(cycle_until([&] { return server.calls == 201; }));
    EXPECT_EQ(open_descriptors(), before + 1); // the server's listener
}

TEST_F(Msgcmd, AnotherThreadMayComeInBetween)
{
    const Listener listener(path);
    make_client(page);
    EXPECT_EQ(write("a"), 0);
    const Fd connection = listener.accept();
    for (int n = 0; interleave(n, cycle, [&] { EXPECT_EQ(write("b"), 0); }); ++n) {
        cycle(), cycle();
        ASSERT_EQ(arrived(connection), "ab") << "sent after unlock " << n;
        write("a");
    }
    cycle();
    const auto refuse = [&] { EXPECT_EQ(write(std::string(page, 'x')), -1); };
    for (int n = 0; msgcmd_close(client), interleave(n, refuse, cycle); ++n) {
        cycle();
        ASSERT_GE(client->fd, 0) << "cycle after unlock " << n; // the connection stays
    }
    const auto before = open_descriptors();
    const auto a = [&] { EXPECT_EQ(write("a"), 0); };
    const auto b = [&] { EXPECT_EQ(write("b"), 0); };
    for (int n = 0; msgcmd_close(client), interleave(n, a, b); ++n) {
        cycle(), cycle();
        ASSERT_TRUE(log.ends_with("2 ")) << "connected after unlock " << n;
        ASSERT_EQ(open_descriptors(), before);
    }
}

} // namespace
