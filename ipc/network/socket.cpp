#include "ipc/network/socket.h"

#include "util/fd.h"
#include "util/unix_address.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

constexpr int ms_per_second = 1000;
constexpr int us_per_ms = 1000;

// Reports what failed; errno stays the caller's.
int fail(const char *what)
{
    const int error = errno;
    std::perror(what);
    errno = error;
    return -1;
}

template <class Address>
const sockaddr *generic(const Address &address)
{
    return reinterpret_cast<const sockaddr *>(&address);
}

sockaddr_in ipv4_address(in_addr_t address, int port)
{
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(static_cast<std::uint16_t>(port));
    result.sin_addr.s_addr = address;
    return result;
}

Fd unix_socket()
{
    Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd)
        std::fputs("Can't create socket !\n", stderr);
    return fd;
}

// A descriptor that a client sends along would be closed where its bytes are thrown away, which can
// take as long as the client likes. The accepted sockets inherit it. A kernel before 6.16 cannot.
void refuse_descriptors(int fd)
{
    constexpr int pass_rights = 83; // SO_PASSRIGHTS, which the C library does not know yet
    const int no = 0;
    setsockopt(fd, SOL_SOCKET, pass_rights, &no, sizeof no);
}

Fd tcp_socket()
{
    Fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
    if (!fd)
        std::perror("socket() failed");
    return fd;
}

int wait_ready(int fd, bool for_write, timeval timeout)
{
    if (fd < 0 || fd >= FD_SETSIZE) {
        errno = EBADF;
        return fail("select");
    }
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    const int ready =
        select(fd + 1, for_write ? nullptr : &set, for_write ? &set : nullptr, nullptr, &timeout);
    return ready < 0 ? fail("select") : ready;
}

Fd accept_connection(int listener)
{
    return Fd(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
}

} // namespace

int unix_domain_socket_init(int *out, const char *path, int backlog)
{
    const auto address = va::unix_address(path);
    if (!address)
        return -1;
    unlink(path);
    Fd fd = unix_socket();
    if (!fd)
        return -1;
    refuse_descriptors(fd.get());
    if (bind(fd.get(), generic(*address), sizeof *address) == -1) {
        std::fputs("Can't bind socket !\n", stderr);
        return -1;
    }
    listen(fd.get(), backlog);
    *out = fd.release();
    return 0;
}

int unix_domain_socket_accept(int listener, int *out)
{
    const int ready = can_read(listener);
    if (ready <= 0)
        return ready;
    Fd fd = accept_connection(listener);
    if (!fd) {
        const int error = errno;
        std::fprintf(stderr, "%s() accept fail\n", __func__);
        errno = error;
        return -1;
    }
    *out = fd.release();
    return 1;
}

int unix_domain_socket_connect(int *out, const char *path)
{
    const auto address = va::unix_address(path);
    if (!address)
        return -1;
    Fd fd = unix_socket();
    if (!fd)
        return -1;
    const auto length = offsetof(sockaddr_un, sun_path) + std::strlen(path);
    if (connect(fd.get(), generic(*address), static_cast<socklen_t>(length)) == -1)
        return -1;
    *out = fd.release();
    return 0;
}

int server_socket_init(int port, int backlog)
{
    Fd fd = tcp_socket();
    if (!fd)
        return -1;
    const sockaddr_in address = ipv4_address(htonl(INADDR_ANY), port);
    if (bind(fd.get(), generic(address), sizeof address) == -1)
        return fail("bind() failed");
    if (listen(fd.get(), backlog) == -1)
        return fail("listen() failed");
    return fd.release();
}

int server_socket_accept(int listener)
{
    const int ready = can_read(listener);
    if (ready < 0)
        return fail("server_socket_accept: select fail.");
    if (ready == 0)
        return 0;
    Fd fd = va::above_zero(accept_connection(listener));
    if (!fd)
        return fail("server_socket_accept: accept fail.");
    return fd.release();
}

int client_socket_connect(const char *address, int port)
{
    Fd fd = tcp_socket();
    if (!fd)
        return -1;
    const sockaddr_in server = ipv4_address(inet_addr(address), port);
    if (connect(fd.get(), generic(server), sizeof server) == -1)
        return fail("connect() failed");
    return fd.release();
}

int can_read(int fd)
{
    return can_read_with_timeout(fd, 0, 0);
}

int can_write(int fd)
{
    return can_write_with_timeout2(fd, 0, 0);
}

int can_read_with_timeout(int fd, int seconds, int microseconds)
{
    return wait_ready(fd, false, {seconds, microseconds});
}

int can_write_with_timeout2(int fd, int seconds, int microseconds)
{
    return wait_ready(fd, true, {seconds, microseconds});
}

int full_read(int fd, void *buffer, int length)
{
    auto *const bytes = static_cast<std::uint8_t *>(buffer);
    int got = 0;
    while (got < length) {
        const int missing = length - got;
        const auto result =
            static_cast<int>(read(fd, bytes + got, static_cast<std::size_t>(missing)));
        if (result == 0)
            std::printf("external: connection closed reading %d bytes, fd=%d\n", missing, fd);
        else if (result < 0)
            std::printf("external: error reading %d bytes: %s, fd=%d\n", missing,
                        std::strerror(errno), fd);
        if (result <= 0)
            return result;
        got += result;
    }
    return length;
}

int full_read_with_timeout(int fd, void *buffer, int length, int timeout)
{
    auto *const bytes = static_cast<std::uint8_t *>(buffer);
    int got = 0;
    while (got < length) {
        const int ready =
            can_read_with_timeout(fd, timeout / ms_per_second, timeout % ms_per_second * us_per_ms);
        if (ready == 0 && timeout > 0)
            break; // a wait that ran out has lasted `timeout`: the time is up
        const auto missing = static_cast<std::size_t>(length - got);
        const auto result = ready < 0 ? -1 : static_cast<int>(read(fd, bytes + got, missing));
        if (result < 0) {
            std::puts("read fail.");
            return -1;
        }
        if (result == 0)
            break;
        got += result;
    }
    return got;
}
