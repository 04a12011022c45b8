#include "ipc/network/socket.h"
#include "tests/support/capture.h"
#include "tests/support/ipc_loop.h"
#include "tests/support/temp_dir.h"

#include <cstring>
#include <fstream>
#include <functional>
#include <thread>

#include <gtest/gtest.h>
#include <netinet/in.h>

namespace
{

struct Pipe {
    Pipe()
    {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        reader = Fd(ends[0]);
        writer = Fd(ends[1]);
    }
    void put(std::string_view bytes) const
    {
        EXPECT_EQ(write(writer.get(), bytes.data(), bytes.size()), std::ssize(bytes));
    }
    Fd reader;
    Fd writer;
};

bool is_accepted_socket(const Fd &fd)
{
    return (fcntl(fd.get(), F_GETFL) & O_NONBLOCK) && (fcntl(fd.get(), F_GETFD) & FD_CLOEXEC);
}

int port_of(const Fd &fd)
{
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(fd.get(), reinterpret_cast<sockaddr *>(&address), &length);
    return ntohs(address.sin_port);
}

std::string perror_line(const char *what, int error)
{
    return std::string(what) + ": " + std::strerror(error) + "\n";
}

TEST(Socket, UnixDomainPathIsReplacedUnlessItIsTooLong)
{
    const TempDir dir;
    const std::string longest = dir.file(std::string(107 - dir.file("").size(), 'p'));
    const std::string too_long = longest + 'p';
    std::ofstream(longest) << "a regular file, then a stale socket";
    std::ofstream(too_long) << "kept";
    for (int i = 0; i < 2; ++i) {
        int fd = -7;
        EXPECT_EQ(unix_domain_socket_init(&fd, too_long.c_str(), 1), -1);
        EXPECT_EQ(unix_domain_socket_connect(&fd, too_long.c_str()), -1);
        EXPECT_EQ(fd, -7);
        EXPECT_EQ(std::filesystem::file_size(too_long), 4U);

        ASSERT_EQ(unix_domain_socket_init(&fd, longest.c_str(), 1), 0);
        const Fd listener(fd);
        EXPECT_EQ(unix_domain_socket_accept(listener.get(), &fd), 0); // none pending: no wait
        EXPECT_EQ(fd, listener.get());
        ASSERT_EQ(unix_domain_socket_connect(&fd, longest.c_str()), 0);
        const Fd client(fd);
        EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
        ASSERT_EQ(unix_domain_socket_accept(listener.get(), &fd), 1);
        EXPECT_TRUE(is_accepted_socket(Fd(fd)));
    }
}

TEST(Socket, TcpConnectsAndAcceptsWithoutWaiting)
{
    const Fd listener(server_socket_init(0, 1));
    EXPECT_EQ(server_socket_accept(listener.get()), 0);
    const int high_bits = 0x10000; // of the port, which do not count
    const Fd client(client_socket_connect("127.0.0.1", high_bits + port_of(listener)));
    ASSERT_TRUE(client);
    EXPECT_EQ(can_read_with_timeout(listener.get(), 0, 20'000'000), 1);
    EXPECT_TRUE(is_accepted_socket(Fd(server_socket_accept(listener.get()))));
}

TEST(Socket, FailuresSayWhatFailedAndLeaveNoDescriptor)
{
    const TempDir dir;
    const Fd listener(server_socket_init(0, 1));
    const int busy = port_of(listener);
    const Pipe ready;
    ready.put("x");
    const int plain = ready.reader.get();
    const std::string missing = dir.file("missing/socket");
    const std::string nobody = dir.file("nobody");
    const std::string bad = perror_line("select", EBADF);
    const std::string none_left = perror_line("socket() failed", EMFILE);
    int out = -7;
    struct Case {
        std::function<int()> call;
        std::string message;
        int left = 1; // descriptors
    };
    const Case cases[] = {
        {[&] { return unix_domain_socket_init(&out, missing.c_str(), 1); },
         "Can't bind socket !\n"},
        {[&] { return unix_domain_socket_init(&out, nobody.c_str(), 1); },
         "Can't create socket !\n", 0},
        {[&] { return unix_domain_socket_connect(&out, nobody.c_str()); },
         "Can't create socket !\n", 0},
        {[&] { return unix_domain_socket_connect(&out, nobody.c_str()); }, ""},
        {[&] { return unix_domain_socket_accept(plain, &out); },
         "unix_domain_socket_accept() accept fail\n"},
        {[&] { return unix_domain_socket_accept(-1, &out); }, bad},
        {[&] { return server_socket_init(0, 1); }, none_left, 0},
        {[&] { return server_socket_init(busy, 1); }, perror_line("bind() failed", EADDRINUSE)},
        {[&] { return server_socket_accept(plain); },
         perror_line("server_socket_accept: accept fail.", ENOTSOCK)},
        {[&] { return server_socket_accept(FD_SETSIZE); },
         bad + perror_line("server_socket_accept: select fail.", EBADF)},
        {[&] { return client_socket_connect("127.0.0.1", busy); }, none_left, 0},
        {[&] { return client_socket_connect("127.0.0.1", 0); },
         perror_line("connect() failed", ECONNREFUSED)},
        {[&] { return can_write_with_timeout2(plain, 0, -1); }, perror_line("select", EINVAL)},
    };
    const auto before = open_descriptors();
    for (const Case &failure : cases) {
        int result = 0;
        EXPECT_EQ(stderr_of([&] {
                      const FewDescriptors few(100, failure.left);
                      result = failure.call();
                  }),
                  failure.message);
        EXPECT_EQ(result, -1) << failure.message;
        EXPECT_EQ(out, -7) << failure.message;
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(Socket, ReadinessOfBothDirections)
{
    const auto expect_ready = [](const Pipe &pipe, int readable, int writable) {
        const int over_a_second = 1'500'000;
        EXPECT_EQ(can_read(pipe.reader.get()), readable);
        EXPECT_EQ(can_read_with_timeout(pipe.reader.get(), 0, readable * over_a_second), readable);
        EXPECT_EQ(can_write(pipe.writer.get()), writable);
        EXPECT_EQ(can_write_with_timeout2(pipe.writer.get(), 0, writable * over_a_second),
                  writable);
    };
    Pipe pipe;
    expect_ready(pipe, 0, 1);
    pipe.put(std::string(static_cast<std::size_t>(fcntl(pipe.writer.get(), F_GETPIPE_SZ)), 'x'));
    expect_ready(pipe, 1, 0);
    Pipe ended;
    ended.writer.reset();
    EXPECT_EQ(can_read(ended.reader.get()), 1); // end of file
}

TEST(Socket, FullReadCollectsPiecesOrTellsWhatIsMissing)
{
    Pipe pipe;
    const int fd = pipe.reader.get();
    std::string bytes(6, '?');
    pipe.put("ab");
    std::thread late([&] { pipe.put("cdefgh"); });
    EXPECT_EQ(full_read(fd, bytes.data(), 6), 6);
    late.join();
    EXPECT_EQ(bytes, "abcdef");

    const auto suffix = ", fd=" + std::to_string(fd) + "\n";
    fcntl(fd, F_SETFL, O_NONBLOCK);
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(full_read(fd, bytes.data(), 6), -1); }),
              "external: error reading 4 bytes: " + std::string(std::strerror(EAGAIN)) + suffix);
    pipe.put("i");
    pipe.writer.reset();
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(full_read(fd, bytes.data(), 6), 0); }),
              "external: connection closed reading 5 bytes" + suffix);
}

TEST(Socket, FullReadWithTimeoutReturnsWhatCame)
{
    const int patient = 60'000;
    std::string bytes(6, '?');
    for (const int blocking : {0, O_NONBLOCK}) {
        Pipe pipe;
        const int fd = pipe.reader.get();
        fcntl(fd, F_SETFL, blocking);
        EXPECT_EQ(full_read_with_timeout(fd, bytes.data(), 6, 1), 0);
        pipe.put("abc");
        EXPECT_EQ(full_read_with_timeout(fd, bytes.data(), 6, 1), 3);
        pipe.put("de");
        std::thread late([&] { pipe.put("fghi"); });
        EXPECT_EQ(full_read_with_timeout(fd, bytes.data(), 6, blocking ? patient : 0), 6);
        late.join();
        EXPECT_EQ(bytes, "defghi");
        for (const int unreadable : {pipe.writer.get(), blocking ? fd : -1}) {
            EXPECT_EQ(stdout_of([&] {
                          const int result = full_read_with_timeout(unreadable, bytes.data(), 6, 0);
                          EXPECT_EQ(result, -1);
                      }),
                      "read fail.\n");
        }
        pipe.put("xy");
        pipe.writer.reset();
        EXPECT_EQ(full_read_with_timeout(fd, bytes.data(), 6, patient), 2);
    }
}

} // namespace
