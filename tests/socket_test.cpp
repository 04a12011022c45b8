#include "ipc/network/socket.h"
#include "tests/support/ipc_loop.h"
#include "tests/support/temp_dir.h"

#include <fstream>
#include <thread>

#include <gtest/gtest.h>

namespace
{

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
    send(connected.get(), "ab", 2, 0);
    connected.reset();
    EXPECT_EQ(full_read_with_timeout(fd, bytes, 6, 60'000), 2);
    EXPECT_EQ(full_read(fd, bytes, 6), 0);
}

} // namespace
