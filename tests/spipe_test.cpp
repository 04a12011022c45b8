#include "ipc/network/fd.h"
#include "ipc/network/spipe.h"
#include "tests/support/capture.h"
#include "tests/support/event_failing_new.h"
#include "tests/support/ipc_loop.h"
#include "tests/support/temp_dir.h"

#include <atomic>
#include <climits>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

int init(spipe_server **server, const std::string &path, int max_clients)
{
    spipe_server_conf conf{};
    path.copy(conf.path, sizeof conf.path);
    conf.max_clients = max_clients;
    return spipe_s_init(server, conf);
}

struct Server {
    explicit Server(const std::string &path, int max_clients = 2)
    {
        EXPECT_EQ(init(&server, path, max_clients), 0);
    }
    ~Server() { spipe_s_destroy(&server); }
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    int write(const std::string &bytes) const
    {
        return spipe_s_write(server, bytes.data(), static_cast<int>(bytes.size()));
    }
    // "slot:bytes" of a read that returns `result`; empty when it changes neither slot nor length.
    std::string read(int result, int limit = 100) const
    {
        std::string bytes(static_cast<std::size_t>(limit), '\0');
        int length = limit;
        int index = -1;
        EXPECT_EQ(spipe_s_read(server, bytes.data(), &length, &index), result);
        bytes.resize(static_cast<std::size_t>(length));
        return index == -1 && length == limit ? "" : std::to_string(index) + ":" + bytes;
    }
    int count() const { return spipe_s_getClientNumbers(server); }

    spipe_server *server = nullptr;
};

struct Client {
    explicit Client(const std::string &path)
    {
        spipe_client_conf conf{};
        path.copy(conf.path, sizeof conf.path);
        EXPECT_EQ(spipe_c_init(&client, conf), 0);
    }
    ~Client() { spipe_c_destroy(&client); }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    // All that has arrived.
    std::string read(int seconds = 0) const
    {
        std::string all;
        std::vector<char> bytes(1 << 16);
        for (int got; (got = spipe_c_read(client, bytes.data(), 1 << 16, seconds, 0)) > 0;
             seconds = 0)
            all.append(bytes.data(), static_cast<std::size_t>(got));
        return all;
    }
    void send(const std::string &bytes) const
    {
        ::send(spipe_c_getFd(client), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }

    spipe_client *client = nullptr;
};

struct SpipeTest : testing::Test {
    TempDir dir;
    std::string path = dir.file("pipe");
};

TEST_F(SpipeTest, FurtherClientsWaitForAFreeSlot)
{
    const Server server(path);
    const Client first(path);
    const Client second(path);
    const Client third(path);
    EXPECT_EQ(server.write("a"), 0);
    EXPECT_EQ(server.count(), 2);
    spipe_c_disconnect(first.client);
    EXPECT_EQ(server.write("b"), 0); // finds the first gone, after taking in clients
    EXPECT_EQ(server.count(), 1);
    EXPECT_EQ(third.read(), "");
    EXPECT_EQ(server.write("c"), 0);
    EXPECT_EQ(server.count(), 2);
    EXPECT_EQ(second.read(), "abc");
    EXPECT_EQ(third.read(), "c");
}

TEST_F(SpipeTest, TwoSlotsServeTwentyFiveClients)
{
    const Server server(path);
    std::atomic<int> served{0};
    std::vector<std::jthread> clients;
    for (int i = 0; i < 25; ++i)
        clients.emplace_back([&] { served += !Client(path).read(20).empty(); });
    EXPECT_TRUE(wait_until([&] {
        EXPECT_EQ(server.write("x"), 0);
        EXPECT_LE(server.count(), 2);
        return served == 25 && server.count() == 0;
    }));
}

TEST_F(SpipeTest, AStalledClientMissesBuffersTheOthersGet)
{
    const Server server(path);
    const Client reader(path);
    const Client stalled(path);
    const std::string big(1 << 22, 'b'); // more than a socket takes
    const std::string dropped = "spipe_s_write: queue is busy, drop data.\n";
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(server.write(big), 0); }), dropped + dropped);
    const std::string part = reader.read();
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(server.write("next"), 0); }), "");
    EXPECT_EQ(reader.read(), "next");
    EXPECT_EQ(stalled.read(), part);
    EXPECT_EQ(server.write("late"), 0);
    EXPECT_EQ(reader.read(), "late");
    EXPECT_EQ(stalled.read(), "late");
}

TEST_F(SpipeTest, ReadsOneReadyClientFromTheLowestSlotUp)
{
    const Server server(path, 3);
    EXPECT_EQ(server.read(SPIPE_NOTHING), "");
    const Client zero(path);
    const Client one(path);
    const Client two(path);
    EXPECT_EQ(server.read(SPIPE_NOTHING), "");
    two.send("two");
    one.send("one");
    EXPECT_EQ(server.read(SPIPE_READ_MORE, 2), "1:on");
    EXPECT_EQ(server.read(SPIPE_READ_MORE), "1:e");
    spipe_c_disconnect(zero.client);
    EXPECT_EQ(server.read(SPIPE_READ), "2:two");
    EXPECT_EQ(server.count(), 2);
    const Client next(path);
    next.send("next");
    EXPECT_EQ(server.read(SPIPE_READ), "0:next");
}

TEST_F(SpipeTest, AClientConnectsAgain)
{
    const auto before = open_descriptors();
    const Client client(path);
    const std::string lost = "spipe_c_read: lose connection.\n";
    EXPECT_EQ(spipe_c_isConnect(client.client), 0);
    EXPECT_EQ(stdout_of([&] { client.read(); }), lost);
    EXPECT_EQ(open_descriptors(), before);
    for (const char *const bytes : {"a", "b"}) {
        {
            const Server server(path);
            EXPECT_EQ(client.read(), "");
            EXPECT_EQ(server.write(bytes), 0);
            EXPECT_EQ(client.read(), bytes);
        }
        EXPECT_EQ(stdout_of([&] { client.read(); }), "spipe_c_read: error 2!\n");
        EXPECT_EQ(stdout_of([&] { client.read(); }), lost);
    }
    EXPECT_EQ(open_descriptors(), before);
}

// Descriptor 0 would read as none.
TEST_F(SpipeTest, WorksWithoutStandardInput)
{
    const Fd standard_input(dup(STDIN_FILENO));
    for (int freed = 0; freed < 3; ++freed) { // for the listener, the client, the connection
        const auto free = [&](int step) { return step == freed ? close(STDIN_FILENO) : 0; };
        free(0);
        const Server server(path);
        free(1);
        const Client client(path);
        free(2);
        EXPECT_EQ(server.write("x"), 0);
        EXPECT_EQ(client.read(), "x");
        EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << freed;
        dup2(standard_input.get(), STDIN_FILENO);
    }
}

TEST_F(SpipeTest, DescriptorsRunOut)
{
    const Server server(path);
    const Client client(path);
    EXPECT_EQ(stderr_of([&] {
                  const FewDescriptors none(100, 0);
                  EXPECT_EQ(server.write("x"), -1);
              }),
              "unix_domain_socket_accept() accept fail\nspipe_s_acceptClients: Error !\n");
    EXPECT_EQ(server.write("x"), 0);
    EXPECT_EQ(client.read(), "x");

    spipe_c_disconnect(client.client);
    const FewDescriptors too_high(FD_SETSIZE + 2, 2);
    int refused = -1;
    EXPECT_EQ(spipe_c_isConnect(client.client), 0);
    EXPECT_EQ(unix_domain_socket_connect(&refused, path.c_str()), 0);
    ASSERT_EQ(refused, FD_SETSIZE);
    EXPECT_EQ(server.read(-1), ""); // for the client's connection
    EXPECT_EQ(server.read(-1), "");
    EXPECT_EQ(recv(refused, &refused, 1, MSG_DONTWAIT), 0); // closed
    close(FD_SETSIZE);
}

TEST_F(SpipeTest, AFailedInitLeavesNothing)
{
    const auto before = open_descriptors();
    const std::string no_end(SPIPE_PATH_SIZE, 'p');
    struct Case {
        std::string path;
        int max_clients;
        const char *reason;
    };
    for (const Case &refused : {Case{path, 0, ""}, Case{path, INT_MIN, ""}, Case{path, INT_MAX, ""},
                                Case{std::string(108, 'p'), 1, ""}, Case{no_end, 1, ""},
                                Case{dir.file("none/pipe"), 1, "Can't bind socket !\n"}}) {
        spipe_server other{};
        spipe_server *server = &other;
        std::string out;
        const auto fail = [&] { EXPECT_EQ(init(&server, refused.path, refused.max_clients), -1); };
        EXPECT_EQ(stderr_of([&] { out = stdout_of(fail); }),
                  std::string(refused.reason) + "spipe_s_init: init fail.\n");
        EXPECT_EQ(out, "spipe_s_init: path=" + refused.path.substr(0, SPIPE_PATH_SIZE - 1) + "\n");
        EXPECT_EQ(server, nullptr);
    }
    EXPECT_EQ(spipe_c_isConnect(Client(no_end).client), 0);
    EXPECT_EQ(open_descriptors(), before);

    const auto make_server = [&] {
        spipe_server *server = nullptr;
        const int result = init(&server, path, 2);
        spipe_s_destroy(&server);
        return result == 0;
    };
    const auto make_client = [&] {
        spipe_client *client = nullptr;
        const int result = spipe_c_init(&client, {});
        spipe_c_destroy(&client);
        return result == 0;
    };
    EXPECT_EQ(stderr_of([&] {
                  EXPECT_EQ(fail_each_allocation(make_server), 2);
                  EXPECT_EQ(fail_each_allocation(make_client), 1);
              }),
              "spipe_s_init: Can't allocate memory!\nspipe_s_init: init fail.\n"
              "spipe_c_init: Can't allocate memory.\n");
}

TEST_F(SpipeTest, NullsAndEmptyBuffersChangeNothing)
{
    const Server server(path);
    const Client client(path);
    char byte = 0;
    EXPECT_EQ(server.write(""), -1);
    EXPECT_EQ(server.read(-1, 0), "");
    EXPECT_EQ(spipe_c_read(client.client, &byte, -1, 0, 0), -1);
    EXPECT_EQ(server.write("x"), 0);
    EXPECT_EQ(client.read(), "x");

    int length = 1;
    int index = 0;
    EXPECT_EQ(spipe_s_acceptClients(nullptr), -1);
    EXPECT_EQ(spipe_s_write(nullptr, &byte, 1), -1);
    EXPECT_EQ(spipe_s_read(nullptr, &byte, &length, &index), -1);
    EXPECT_EQ(spipe_s_getClientNumbers(nullptr), 0);
    EXPECT_EQ(spipe_s_destroy(nullptr), 0);
    EXPECT_EQ(spipe_c_isConnect(nullptr), 0);
    EXPECT_EQ(spipe_c_read(nullptr, &byte, 1, 0, 0), -1);
    EXPECT_EQ(spipe_c_getFd(nullptr), 0);
    EXPECT_EQ(spipe_c_disconnect(nullptr), -1);
    EXPECT_EQ(spipe_c_destroy(nullptr), 0);
}

} // namespace
