#include "event/event.h"
#include "ipc/msg/msg.h"
#include "ipc/msg/msgcmd.h"
#include "ipc/network/fd.h"
#include "ipc/network/socket.h"
#include "tests/support/capture.h"
#include "tests/support/event_failing_new.h"
#include "tests/support/ipc_loop.h"
#include "tests/support/temp_dir.h"
#include "util/sequence_pool.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <functional>
#include <future>
#include <numeric>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr unsigned page = seqpool_page_size;
constexpr int backlog = 100;
const std::string command = "reconfig\n";

int send_limit = INT_MAX;           // bytes a send takes at most; below 0 it fails
thread_local int unlocks_left = -1; // of this thread, before after_unlock runs
std::function<void()> after_unlock;

} // namespace

// A Unix-domain socket always takes a chunk as small as the client's whole.
ssize_t send(int fd, const void *data, size_t size, int flags)
{
    if (send_limit < 0)
        return -1;
    return sendto(fd, data, std::min(size, static_cast<size_t>(send_limit)), flags, nullptr, 0);
}

// Every mutex of the program is let go of here.
int pthread_mutex_unlock(pthread_mutex_t *mutex) noexcept
{
    static void *next = dlsym(RTLD_NEXT, "pthread_mutex_unlock");
    const int result = reinterpret_cast<int (*)(pthread_mutex_t *)>(next)(mutex);
    if (unlocks_left >= 0 && unlocks_left-- == 0)
        after_unlock();
    return result;
}

namespace
{

std::string text(std::size_t size)
{
    std::string bytes(size, '\0');
    std::iota(bytes.begin(), bytes.end(), '\0');
    return bytes;
}

// A bare listener, and its side of one connection.
struct Peer {
    explicit Peer(const std::string &path)
    {
        int fd = -1;
        EXPECT_EQ(unix_domain_socket_init(&fd, path.c_str(), backlog), 0);
        listener = Fd(fd);
    }
    void accept()
    {
        int fd = -1;
        EXPECT_EQ(unix_domain_socket_accept(listener.get(), &fd), 1);
        connection = Fd(fd);
    }
    std::string received(std::size_t limit = 1 << 16) const
    {
        std::string bytes(limit, '\0');
        const ssize_t got = recv(connection.get(), bytes.data(), limit, MSG_DONTWAIT);
        bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return bytes;
    }

    Fd listener;
    Fd connection;
};

// A control-message server in socket mode, in this thread's loop.
struct Server {
    explicit Server(const std::string &path)
    {
        msg_conf conf{};
        path.copy(conf.path, sizeof conf.path - 1);
        conf.mode = MSG_SOCKET;
        const auto count = [](void *arg, const char *, int) { return ++*static_cast<int *>(arg); };
        EXPECT_EQ(msg_init(&handle, conf), 0);
        EXPECT_EQ(msg_register(handle, "reconfig", count, &calls), 0);
        EXPECT_EQ(msg_start(handle), 0);
    }
    ~Server()
    {
        msg_release(&handle);
        cycle();
    }
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    int calls = 0;
    msg_handle *handle = nullptr;
};

// The loop in a thread of its own.
struct LoopThread {
    ~LoopThread() { stop = true; }
    std::atomic<bool> stop{false};
    std::jthread thread{[this] {
        while (!stop)
            cycle();
    }};
};

struct MsgcmdTest : testing::Test {
    ~MsgcmdTest() override
    {
        send_limit = INT_MAX;
        msgcmd_release(&client);
        cycle();
    }

    void make_client(unsigned size = 16 * page)
    {
        stdout_of([&] { ASSERT_EQ(msgcmd_init(&client, path.c_str(), size), 0); });
        const auto read_cb = [](int count, const void *data, void *arg) {
            auto *const test = static_cast<MsgcmdTest *>(arg);
            if (count > 0)
                test->read.append(static_cast<const char *>(data), static_cast<unsigned>(count));
            test->on_read(count);
        };
        const auto write_cb = [](int count, void *arg) {
            static_cast<MsgcmdTest *>(arg)->writes.push_back(count);
        };
        msgcmd_setcb(client, read_cb, write_cb, this);
    }
    int write(const std::string &bytes) const
    {
        return msgcmd_noblock_write(client, bytes.data(), static_cast<unsigned>(bytes.size()));
    }
    std::string printed_by_write(const std::string &bytes, int result) const
    {
        return stdout_of([&] { EXPECT_EQ(write(bytes), result); });
    }

    TempDir dir;
    std::string path = dir.file("control");
    std::string closed_line = path + ": close or error.\n";
    msgcmd *client = nullptr;
    std::vector<int> writes;
    std::string read;
    std::function<void(int)> on_read = [](int) {};
};

TEST_F(MsgcmdTest, BlockingSend)
{
    const auto before = open_descriptors();
    const auto send_blocking = [&](const std::string &bytes, int result) {
        return stdout_of([&] {
            const auto length = static_cast<unsigned>(bytes.size());
            EXPECT_EQ(msgcmd_block_write(path.c_str(), bytes.data(), length), result);
        });
    };
    EXPECT_EQ(send_blocking("", 0), "");
    EXPECT_EQ(send_blocking("x", -1), "");
    {
        const Server server(path);
        EXPECT_EQ(send_blocking(command, 0), "");
        EXPECT_TRUE(cycle_until([&] { return server.calls == 1; }));
    }
    Peer peer(path);
    std::jthread reads_one_byte([&] {
        EXPECT_TRUE(wait_until([&] { return can_read(peer.listener.get()) == 1; }));
        peer.accept();
        EXPECT_TRUE(wait_until([&] { return !peer.received(1).empty(); }));
        peer.connection.reset();
    });
    EXPECT_EQ(send_blocking(text(1 << 22), 0), "msgcmd_block_write: data lose.\n");
    reads_one_byte.join();
    for (send_limit = 0; send_limit >= -1; --send_limit)
        EXPECT_EQ(send_blocking("x", -1),
                  "msgcmd_block_write: fail. ret = " + std::to_string(send_limit) + "\n");
    peer.listener.reset();
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(MsgcmdTest, QueuedBytesGoOutInChunksOnePerCycle)
{
    Peer peer(path);
    make_client();
    EXPECT_EQ(write(text(3000)), 0);
    std::vector<int> expected;
    for (const int chunk : {1024, 1024, 952}) {
        EXPECT_EQ(get_event_enabled(client->write_event), 1);
        cycle();
        expected.push_back(chunk);
        EXPECT_EQ(writes, expected);
    }
    EXPECT_EQ(get_event_enabled(client->write_event), 0);
    peer.accept();
    EXPECT_EQ(peer.received(), text(3000));

    EXPECT_EQ(write(text(1500)), 0);
    send_limit = 10;
    const std::string lost = "data lose when write to " + path + "\n";
    EXPECT_EQ(stdout_of([] { cycle(), cycle(), cycle(); }), lost + lost);
    EXPECT_EQ(writes, (std::vector{1024, 1024, 952, 10, 10}));
    EXPECT_EQ(peer.received(), text(1500).substr(0, 10) + text(1500).substr(1024, 10));
}

TEST_F(MsgcmdTest, WhatDoesNotFitIsRefusedWhole)
{
    Peer peer(path);
    const std::string refused =
        "msgcmd_noblock_write: buffer size is not enough. data will be losed.\n";
    make_client(2 * page - 1);
    EXPECT_EQ(printed_by_write(text(page), -1), refused);
    EXPECT_EQ(printed_by_write(text(page - 1), 0), "");
    EXPECT_EQ(printed_by_write("x", -1), refused);
    peer.accept();
    std::string received;
    EXPECT_TRUE(cycle_until([&] { return (received += peer.received()).size() >= page - 1; }));
    EXPECT_EQ(received, text(page - 1));

    msgcmd_release(&client);
    make_client(page - 1);
    EXPECT_EQ(printed_by_write("x", -1), refused);
}

TEST_F(MsgcmdTest, ConnectsAgainForEveryItem)
{
    const auto before = open_descriptors();
    make_client();
    EXPECT_EQ(printed_by_write(command, -1), "");
    EXPECT_EQ(open_descriptors(), before);
    const Server server(path);
    int ended = 0;
    on_read = [&](int count) {
        if (count != 0)
            return;
        if (++ended == 3)
            msgcmd_release(&client);
        else
            write(command);
    };
    EXPECT_EQ(write(command), 0);
    EXPECT_EQ(stdout_of([&] { EXPECT_TRUE(cycle_until([&] { return ended == 3; })); }),
              closed_line + closed_line + closed_line);
    EXPECT_EQ(server.calls, 3);
    EXPECT_EQ(read, "OK\nOK\nOK\n");
    EXPECT_EQ(client, nullptr);
}

TEST_F(MsgcmdTest, WhatIsQueuedWhenTheConnectionEndsIsDropped)
{
    Peer peer(path);
    make_client();
    EXPECT_EQ(write("old"), 0);
    peer.accept();
    peer.connection.reset();
    EXPECT_EQ(stdout_of([] { cycle(); }), closed_line);
    EXPECT_EQ(writes, std::vector{-1});
    EXPECT_EQ(client->fd, -1);
    EXPECT_EQ(write("dropped"), 0);
    msgcmd_close(client);
    EXPECT_EQ(write("new"), 0);
    cycle();
    peer.accept(); // the closed connection
    peer.accept();
    EXPECT_EQ(peer.received(), "new");
    EXPECT_EQ(writes, (std::vector{-1, 3}));
}

TEST_F(MsgcmdTest, APeerThatReadsByteByByteGetsEverything)
{
    Peer peer(path);
    make_client(100 * page);
    const std::string bytes = text(99 * page); // more than a socket takes
    EXPECT_EQ(write(bytes), 0);
    peer.accept();
    std::string received;
    std::jthread reader([&] {
        EXPECT_TRUE(wait_until([&] {
            for (std::string byte; !(byte = peer.received(1)).empty();)
                received += byte;
            return received.size() >= bytes.size();
        }));
    });
    EXPECT_TRUE(cycle_until([&] { return seqpool_askDataSize(client->pool) == 0; }));
    reader.join();
    EXPECT_EQ(received, bytes);
}

// Runs `first`, and `second` in another thread once `first` has let go of its n-th mutex, or after
// it when there is none. Returns whether there was.
template <class First, class Second>
bool interleave(int n, First first, Second second)
{
    std::future<void> other;
    after_unlock = [&] {
        other = std::async(std::launch::async, second);
        other.wait_for(std::chrono::milliseconds(20)); // it may need another lock of `first`
    };
    unlocks_left = n;
    first();
    const bool reached = std::exchange(unlocks_left, -1) < 0;
    if (reached)
        other.get();
    else
        second();
    return reached;
}

TEST_F(MsgcmdTest, NoByteFromAnotherThreadIsLeftBehind)
{
    Peer peer(path);
    make_client();
    bool more = true;
    for (int n = 0; more; ++n) {
        EXPECT_EQ(write("a"), 0);
        more = interleave(n, cycle, [&] { EXPECT_EQ(write("b"), 0); });
        cycle(), cycle();
        if (n == 0)
            peer.accept();
        ASSERT_EQ(peer.received(), "ab") << "sent after unlock " << n;
    }
}

TEST_F(MsgcmdTest, ACycleDuringARefusedSendEndsNoConnection)
{
    const Peer peer(path);
    make_client(page);
    bool more = true;
    for (int n = 0; more; ++n) {
        more = interleave(
            n, [&] { EXPECT_EQ(write(text(page)), -1); }, cycle);
        cycle();
        ASSERT_GE(client->fd, 0) << "cycle after unlock " << n;
        EXPECT_EQ(get_event_enabled(client->write_event), 0);
        msgcmd_close(client);
    }
}

TEST_F(MsgcmdTest, AnotherThreadSendsWhileTheLoopRuns)
{
    Peer peer(path);
    make_client();
    msgcmd_setcb(client, nullptr, nullptr, nullptr);
    EXPECT_EQ(write("first"), 0);
    peer.accept();
    const LoopThread loop;
    std::string expected = "first";
    for (int i = 0; i < 10'000; ++i) {
        ASSERT_EQ(can_read_with_timeout(peer.connection.get(), 20, 0), 1) << i;
        ASSERT_EQ(peer.received(64), expected);
        for (int pause = i % 1000; pause > 0; --pause)
            std::atomic_signal_fence(std::memory_order_seq_cst);
        expected = std::to_string(i);
        ASSERT_EQ(write(expected), 0);
    }
}

TEST_F(MsgcmdTest, AnotherThreadSendsWhileTheServerCloses)
{
    const Server server(path);
    make_client();
    std::atomic<int> ended{0};
    on_read = [&](int count) { ended += count == 0; };
    const LoopThread loop;
    for (int i = 1; i <= 200; ++i) {
        ASSERT_EQ(write(command), 0);
        ASSERT_TRUE(wait_until([&] { return ended == i; }));
    }
}

TEST_F(MsgcmdTest, AFailedInitLeavesNothing)
{
    const auto make = [&] {
        msgcmd *made = nullptr;
        const int result = msgcmd_init(&made, path.c_str(), 2 * page);
        msgcmd_release(&made);
        return result == 0;
    };
    const std::string out = stdout_of([&] {
        EXPECT_EQ(fail_each_allocation(make), 5); // client, path, queue, two pages
    });
    const std::string no_client = "msgcmd_init: Can't alloc memory!\n";
    EXPECT_EQ(out.find(no_client + no_client + "Can't allocate memory.\n"), 0);
    msgcmd other{};
    msgcmd *failed = &other;
    stdout_of([&] { EXPECT_EQ(msgcmd_init(&failed, path.c_str(), 4097 * page), -1); });
    EXPECT_EQ(failed, nullptr);
}

TEST_F(MsgcmdTest, ASendWithoutAnEventQueuesNothing)
{
    Peer peer(path);
    make_client();
    EXPECT_EQ(fail_each_allocation([&] { return write("x") == 0; }), 2); // read and write event
    cycle();
    peer.accept();
    peer.accept();
    EXPECT_EQ(peer.received(), "x");
    msgcmd_close(client);
    const FewDescriptors too_high(FD_SETSIZE + 1, 1);
    EXPECT_EQ(write("x"), -1);
    EXPECT_EQ(client->fd, -1);

    EXPECT_EQ(write(""), 0);
    EXPECT_EQ(msgcmd_noblock_write(nullptr, "x", 1), -1);
    msgcmd_setcb(nullptr, nullptr, nullptr, nullptr);
    msgcmd_close(nullptr);
    msgcmd_release(nullptr);
}

} // namespace
