#include "ipc/network/socket.h"
#include "ipc/network/spipe.h"
#include "tests/support/ipc_loop.h"
#include "tests/support/temp_dir.h"

#include <fstream>
#include <functional>
#include <thread>

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/select.h>

namespace
{

thread_local std::int64_t limit; // of the last wait, us

const TempDir dir;
const std::string longest = dir.file(std::string(107 - dir.file("").size(), 'p'));

TEST(Socket, UnixDomainFailuresLeaveEverythingAsItWas)
{
    const std::string too_long = longest + "p";
    std::ofstream(too_long) << "kept";
    const auto before = open_descriptors();
    int out = -7;
    EXPECT_EQ(unix_domain_socket_init(&out, too_long.c_str(), 1), -1);
    EXPECT_EQ(unix_domain_socket_connect(&out, too_long.c_str()), -1);
    EXPECT_EQ(std::filesystem::file_size(too_long), 4U);
    EXPECT_EQ(unix_domain_socket_connect(&out, "nobody"), -1);
    EXPECT_EQ(unix_domain_socket_init(&out, "missing/socket", 1), -1);
    EXPECT_EQ(unix_domain_socket_accept(FD_SETSIZE, &out), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(out, -7);
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
    EXPECT_EQ(full_read_with_timeout(fd, bytes, 6, 1), 2);
    EXPECT_TRUE(va::set_non_blocking(accepted.get()));
    EXPECT_EQ(full_read_with_timeout(fd, bytes, 6, 0), -1);
    const Fd last(dup2(fd, FD_SETSIZE - 1));
    spipe_client client{"", fd};
    const std::pair<std::function<int()>, std::int64_t> waits[] = {
        {[&] { return can_read_with_timeout(last.get(), 0, 300'001); }, 300'001},
        {[&] { return can_write_with_timeout2(fd, 2, 3'000'007); }, 5'000'007},
        {[&] { return full_read_with_timeout(fd, bytes, 1, 1300); }, 1'300'000},
        {[&] { return spipe_c_read(&client, bytes, 3, 3, 4); }, 3'000'004}};
    for (const auto &[wait, us] : waits) {
        send(connected.get(), "a", 1, 0);
        EXPECT_GE(wait(), 1);
        EXPECT_EQ(limit, us);
    }
    send(connected.get(), "ab", 2, 0);
    connected.reset();
    EXPECT_EQ(full_read_with_timeout(fd, bytes, 6, 60'000), 2);
    EXPECT_EQ(full_read(fd, bytes, 6), 0);
}

// Whatever comes to be descriptor 0, which would read as none.
TEST(Socket, AcceptsOverTcp)
{
    const Fd standard_input(dup(STDIN_FILENO));
    const Fd listener(server_socket_init(0, 1));
    EXPECT_EQ(server_socket_accept(listener.get()), 0);
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(listener.get(), reinterpret_cast<sockaddr *>(&address), &size);
    const Fd client(client_socket_connect("127.0.0.1", ntohs(address.sin_port)));
    EXPECT_EQ(can_read_with_timeout(listener.get(), 60, 0), 1);
    close(STDIN_FILENO);
    const Fd accepted(server_socket_accept(listener.get()));
    EXPECT_GT(accepted.get(), 0);
    dup2(standard_input.get(), STDIN_FILENO);
}

} // namespace

// Stands in front of the C library's.
extern "C" int select(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout)
{
    limit = timeout->tv_sec * std::int64_t{1'000'000} + timeout->tv_usec;
    const timespec time{static_cast<time_t>(limit / 1'000'000),
                        static_cast<long>(limit % 1'000'000 * 1000)};
    return pselect(count, read, write, except, &time, nullptr);
}
