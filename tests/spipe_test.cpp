#include "ipc/network/spipe.h"
#include "tests/support/capture.h"
#include "tests/support/ipc_loop.h"
#include "tests/support/temp_dir.h"

#include <algorithm>
#include <deque>

#include <gtest/gtest.h>

namespace
{

struct Client {
    explicit Client(const std::string &path)
    {
        spipe_client_conf conf{};
        path.copy(conf.path, sizeof conf.path);
        const int result = spipe_c_init(&client, conf);
        EXPECT_EQ(result, client ? 0 : -1);
    }
    ~Client() { spipe_c_destroy(&client); }

    std::string read() const
    {
        std::string bytes(1 << 20, '\0');
        const int got = spipe_c_read(client, bytes.data(), 1 << 20, 0, 0);
        return bytes.substr(0, static_cast<unsigned>(std::max(got, 0)));
    }

    spipe_client *client = nullptr;
};

struct Spipe : testing::Test {
    ~Spipe() override { spipe_s_destroy(&server); }

    int init(int max_clients)
    {
        spipe_server_conf conf{};
        path.copy(conf.path, sizeof conf.path);
        conf.max_clients = max_clients;
        return spipe_s_init(&server, conf);
    }
    int write(const std::string &bytes) const
    {
        return spipe_s_write(server, bytes.data(), static_cast<int>(bytes.size()));
    }
    // The result, the slot and the bytes; the result alone when slot and length stay as they were.
    std::string read(int limit = 100) const
    {
        std::string bytes(100, '\0');
        int length = limit;
        int slot = -1;
        const int result = spipe_s_read(server, bytes.data(), &length, &slot);
        bytes = std::to_string(slot) + " " + bytes.substr(0, static_cast<unsigned>(length));
        return std::to_string(result) + (slot == -1 && length == limit ? "" : " " + bytes);
    }

    TempDir dir;
    std::string path = dir.file("pipe");
    spipe_server *server = nullptr;
};

TEST_F(Spipe, ClientsComeWaitAndGo)
{
    const auto before = open_descriptors();
    EXPECT_EQ(init(2), 0);
    EXPECT_EQ(read(), "0");
    const Client first(path);
    const Client second(path);
    const Client third(path);
    EXPECT_EQ(read(), "0");
    send(spipe_c_getFd(second.client), "two", 3, 0);
    send(spipe_c_getFd(first.client), "one", 3, 0);
    EXPECT_EQ(read(2), "2 0 on");
    EXPECT_EQ(read(), "2 0 e");
    EXPECT_EQ(write("a"), 0);
    EXPECT_EQ(spipe_s_getClientNumbers(server), 2);
    spipe_c_disconnect(first.client);
    EXPECT_EQ(read(), "1 1 two"); // finds the first gone, after taking in clients
    EXPECT_EQ(spipe_s_getClientNumbers(server), 1);
    send(spipe_c_getFd(third.client), "three", 5, 0);
    EXPECT_EQ(read(), "1 0 three");
    EXPECT_EQ(second.read(), "a");
    spipe_c_disconnect(second.client);
    EXPECT_EQ(write("b"), 0);
    EXPECT_EQ(spipe_s_getClientNumbers(server), 1);
    EXPECT_EQ(third.read(), "b");
    EXPECT_EQ(open_descriptors(), before + 3); // the listener and the ends of one connection
    const rlimit more{FD_SETSIZE + 8, FD_SETSIZE + 8};
    setrlimit(RLIMIT_NOFILE, &more);
    std::deque<Fd> all; // and none is left that can be waited on
    while (all.emplace_back(dup(STDIN_FILENO)) && all.back().get() < FD_SETSIZE) {
    }
    EXPECT_EQ(spipe_c_isConnect(first.client), 0);
}

TEST_F(Spipe, AStalledClientMissesBuffersTheOthersGet)
{
    EXPECT_EQ(init(2), 0);
    const Client reader(path);
    const Client stalled(path);
    const auto write_big = [&] { write(std::string(1 << 22, 'b')); }; // more than a socket takes
    const std::string dropped = "spipe_s_write: queue is busy, drop data.\n";
    EXPECT_EQ(stdout_of(write_big), dropped + dropped);
    const std::string part = reader.read();
    EXPECT_EQ(stdout_of([&] { write("next"); }), "");
    EXPECT_EQ(reader.read(), "next");
    EXPECT_EQ(stalled.read(), part);
    write("late");
    EXPECT_EQ(reader.read() + stalled.read(), "latelate");
}

// Whatever comes to be descriptor 0, which would read as none.
TEST_F(Spipe, AClientConnectsAgain)
{
    const Fd standard_input(dup(STDIN_FILENO));
    const Client client(path);
    const auto read = [&] { EXPECT_EQ(client.read(), ""); };
    const auto before = open_descriptors();
    for (int freed = 0; freed < 3; ++freed) { // for the listener, the client, the connection
        const auto free = [&](int step) { return step == freed ? close(STDIN_FILENO) : 0; };
        EXPECT_EQ(stdout_of(read), "spipe_c_read: lose connection.\n");
        free(0);
        EXPECT_EQ(init(1), 0);
        free(1);
        read();
        free(2);
        write("x");
        EXPECT_EQ(client.read(), "x");
        EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << freed;
        dup2(standard_input.get(), STDIN_FILENO);
        spipe_s_destroy(&server);
        EXPECT_EQ(stdout_of(read), "spipe_c_read: error 2!\n");
        EXPECT_EQ(open_descriptors(), before);
    }
}

} // namespace
