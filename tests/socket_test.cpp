#include "ipc/network/socket.h"
#include "tests/support/capture.h"
#include "tests/support/ipc_loop.h"
#include "tests/support/temp_dir.h"

#include <fstream>
#include <thread>

#include <gtest/gtest.h>
#include <netinet/in.h>

namespace
{

const TempDir dir;
const std::string longest = dir.file(std::string(107 - dir.file("").size(), 'p'));

// `outcome`: the result and what is printed.
void expect(const std::string &outcome, auto function, auto... arguments)
{
    int result = 0;
    std::string output;
    const auto call = [&] { result = function(arguments...); };
    const std::string errors = stderr_of([&] { output = stdout_of(call); });
    EXPECT_EQ(std::to_string(result) + " " + output + errors, outcome);
}

TEST(Socket, UnixDomainFailuresLeaveEverythingAsItWas)
{
    const std::string too_long = longest + "p";
    std::ofstream(too_long) << "kept";
    const auto before = open_descriptors();
    int out = -7;
    expect("-1 ", unix_domain_socket_init, &out, too_long.c_str(), 1);
    expect("-1 ", unix_domain_socket_connect, &out, too_long.c_str());
    EXPECT_EQ(std::filesystem::file_size(too_long), 4U);
    expect("-1 ", unix_domain_socket_connect, &out, "nobody");
    expect("-1 Can't bind socket !\n", unix_domain_socket_init, &out, "missing/socket", 1);
    expect("-1 select: Bad file descriptor\n", unix_domain_socket_accept, FD_SETSIZE, &out);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(out, -7);
    EXPECT_EQ(open_descriptors(), before);
}

TEST(Socket, TcpConnectsAndAcceptsWithoutWaiting)
{
    const Fd listener(server_socket_init(0, 1));
    EXPECT_EQ(server_socket_accept(listener.get()), 0);
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(listener.get(), reinterpret_cast<sockaddr *>(&address), &length);
    const int port = ntohs(address.sin_port);
    const Fd client(client_socket_connect("127.0.0.1", 0x10000 + port)); // its low 16 bits count
    EXPECT_EQ(can_read_with_timeout(listener.get(), 0, 20'000'000), 1);
    const Fd standard_input(dup(STDIN_FILENO));
    close(STDIN_FILENO); // a connection as descriptor 0 would read as none
    Fd accepted(server_socket_accept(listener.get()));
    dup2(standard_input.get(), STDIN_FILENO);
    EXPECT_GT(accepted.get(), 0);
    accepted.reset();
    EXPECT_EQ(can_read_with_timeout(client.get(), 20, 0), 1); // end of file

    const auto before = open_descriptors();
    expect("-1 bind() failed: Address already in use\n", server_socket_init, port, 1);
    expect("-1 connect() failed: Connection refused\n", client_socket_connect, "127.0.0.1", 0);
    EXPECT_EQ(open_descriptors(), before);
}

TEST(Socket, FullReadsOverAUnixDomainConnection)
{
    int fd = -1;
    Fd listener;
    std::ofstream(longest) << "a regular file; then a stale socket";
    for (int replaced = 0; replaced < 2; ++replaced) {
        ASSERT_EQ(unix_domain_socket_init(&fd, longest.c_str(), 1), 0);
        listener = Fd(fd);
    }
    EXPECT_EQ(unix_domain_socket_accept(listener.get(), &fd), 0); // none pending: no wait
    ASSERT_EQ(unix_domain_socket_connect(&fd, longest.c_str()), 0);
    Fd connected(fd);
    ASSERT_EQ(unix_domain_socket_accept(listener.get(), &fd), 1);
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    Fd accepted(fd);

    char bytes[6];
    for (const int timeout : {-1, 0, 60'000}) { // full_read(); no limit; patient
        send(connected.get(), "ab", 2, 0);
        const std::jthread later([&] {
            EXPECT_TRUE(wait_until([&] { return can_read(fd) == 0; }));
            send(connected.get(), "cdef", 4, 0);
        });
        const int got =
            timeout < 0 ? full_read(fd, bytes, 6) : full_read_with_timeout(fd, bytes, 6, timeout);
        EXPECT_EQ(got, 6);
        EXPECT_EQ(std::string(bytes, 6), "abcdef");
    }
    send(connected.get(), "ab", 2, 0);
    expect("2 ", full_read_with_timeout, fd, bytes, 6, 1);
    const std::string name = ", fd=" + std::to_string(fd) + "\n";
    EXPECT_TRUE(set_non_blocking(accepted));
    expect("-1 read fail.\n", full_read_with_timeout, fd, bytes, 6, 0);
    expect("-1 external: error reading 6 bytes: Resource temporarily unavailable" + name, full_read,
           fd, bytes, 6);
    send(connected.get(), "ab", 2, 0);
    connected.reset();
    expect("2 ", full_read_with_timeout, fd, bytes, 6, 60'000);
    expect("0 external: connection closed reading 6 bytes" + name, full_read, fd, bytes, 6);
}

} // namespace
