#include "ipc/network/spipe.h"

#include "ipc/network/socket.h"
#include "util/fd.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>
#include <span>
#include <utility>

#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

static_assert(SPIPE_MAX_CLIENTS == FD_SETSIZE);

constexpr std::int32_t none = 0; // in the place of a descriptor

void close_one(std::int32_t &fd)
{
    Fd(fd > none ? fd : -1).reset();
    fd = none;
}

// A path that is not terminated is cut, but stays too long for a socket address.
void copy_path(char (&to)[SPIPE_PATH_SIZE], const char (&from)[SPIPE_PATH_SIZE])
{
    std::memcpy(to, from, SPIPE_PATH_SIZE - 1);
    to[SPIPE_PATH_SIZE - 1] = '\0';
}

// A descriptor that can be waited on and does not read as none; empty when it cannot be had.
Fd usable(Fd fd)
{
    fd = va::above_zero(std::move(fd));
    if (fd.get() >= FD_SETSIZE)
        fd.reset();
    return fd;
}

std::span<std::int32_t> slots(const spipe_server &server)
{
    return {server.clients, server.clients ? static_cast<std::size_t>(server.max_clients) : 0};
}

void end_server(spipe_server *server)
{
    std::ranges::for_each(slots(*server), close_one);
    delete[] server->clients;
    close_one(server->listen_fd);
    delete server;
}

void remove_client(spipe_server &server, std::int32_t &slot)
{
    close_one(slot);
    --server.client_count;
}

bool set_up(spipe_server &server)
{
    if (server.max_clients < 1 || server.max_clients > SPIPE_MAX_CLIENTS)
        return false;
    const auto count = static_cast<std::size_t>(server.max_clients);
    server.clients = new (std::nothrow) std::int32_t[count]();
    int opened = -1;
    if (!server.clients || unix_domain_socket_init(&opened, server.path, server.max_clients) == -1)
        return false;
    Fd listener = usable(Fd(opened));
    if (!listener)
        return false;
    server.listen_fd = listener.release();
    return true;
}

// Returns whether the connection still stands.
bool deliver(int fd, const void *buffer, int length)
{
    const int ready = can_write(fd);
    if (ready <= 0)
        return ready == 0;
    const ssize_t written = send(fd, buffer, static_cast<std::size_t>(length), MSG_NOSIGNAL);
    if (written > 0 && written < length)
        std::puts("spipe_s_write: queue is busy, drop data.");
    return written > 0;
}

// Marks the ready clients. Returns select's result.
int select_ready(const spipe_server &server, fd_set &ready)
{
    FD_ZERO(&ready);
    int last = 0;
    for (const std::int32_t slot : slots(server)) {
        if (slot <= none)
            continue;
        FD_SET(slot, &ready);
        last = std::max(last, slot);
    }
    timeval at_once{};
    return select(last + 1, &ready, nullptr, nullptr, &at_once);
}

int read_one(spipe_server &server, const fd_set &ready, void *buffer, int *length, int *index)
{
    int result = SPIPE_NOTHING;
    for (std::int32_t &slot : slots(server)) {
        if (slot <= none || !FD_ISSET(slot, &ready))
            continue;
        if (result == SPIPE_READ)
            return SPIPE_READ_MORE;
        const ssize_t got = read(slot, buffer, static_cast<std::size_t>(*length));
        if (got <= 0) {
            remove_client(server, slot);
            continue;
        }
        *length = static_cast<int>(got);
        *index = static_cast<int>(&slot - server.clients);
        result = SPIPE_READ;
    }
    return result;
}

int lose_connection(spipe_client *client, const char *where)
{
    std::printf("spipe_c_read: %s!\n", where);
    spipe_c_disconnect(client);
    return -1;
}

} // namespace

int spipe_s_init(spipe_server **out, spipe_server_conf conf)
{
    if (!out)
        return -1;
    *out = nullptr;
    va::Owner<spipe_server, end_server> server(new (std::nothrow) spipe_server{});
    if (!server) {
        std::fprintf(stderr, "%s: Can't allocate memory!\n", __func__);
        return -1;
    }
    copy_path(server->path, conf.path);
    server->max_clients = conf.max_clients;
    std::printf("%s: path=%s\n", __func__, server->path);
    if (!set_up(*server)) {
        std::fprintf(stderr, "%s: init fail.\n", __func__);
        return -1;
    }
    *out = server.release();
    return 0;
}

int spipe_s_acceptClients(spipe_server *server)
{
    if (!server)
        return -1;
    while (server->client_count < server->max_clients) {
        int accepted = -1;
        if (unix_domain_socket_accept(server->listen_fd, &accepted) == 0)
            return 0;
        Fd connection = usable(Fd(accepted));
        if (!connection || !va::set_non_blocking(connection.get())) {
            std::fprintf(stderr, "%s: Error !\n", __func__);
            return -1;
        }
        *std::ranges::find(slots(*server), none) = connection.release();
        ++server->client_count;
    }
    return 0;
}

int spipe_s_write(spipe_server *server, const void *buffer, int length)
{
    if (length < 1 || spipe_s_acceptClients(server) == -1)
        return -1;
    for (std::int32_t &slot : slots(*server)) {
        if (slot > none && !deliver(slot, buffer, length))
            remove_client(*server, slot);
    }
    return 0;
}

int spipe_s_read(spipe_server *server, void *buffer, int *length, int *index)
{
    if (*length < 1 || spipe_s_acceptClients(server) == -1)
        return -1;
    if (server->client_count == 0)
        return SPIPE_NOTHING;
    fd_set ready;
    if (select_ready(*server, ready) < 0) {
        std::perror("select");
        return -1;
    }
    return read_one(*server, ready, buffer, length, index);
}

int spipe_s_getClientNumbers(const spipe_server *server)
{
    return server ? server->client_count : 0;
}

int spipe_s_destroy(spipe_server **server)
{
    if (server && *server)
        end_server(std::exchange(*server, nullptr));
    return 0;
}

int spipe_c_init(spipe_client **out, spipe_client_conf conf)
{
    if (!out)
        return -1;
    *out = new (std::nothrow) spipe_client{};
    if (!*out) {
        std::fprintf(stderr, "%s: Can't allocate memory.\n", __func__);
        return -1;
    }
    copy_path((*out)->path, conf.path);
    spipe_c_isConnect(*out);
    return 0;
}

int spipe_c_isConnect(spipe_client *client)
{
    if (!client)
        return 0;
    int connected = -1;
    if (client->fd <= none && unix_domain_socket_connect(&connected, client->path) == 0) {
        Fd connection = usable(Fd(connected));
        client->fd = connection ? connection.release() : none;
    }
    return client->fd > none;
}

int spipe_c_read(spipe_client *client, void *buffer, int length, int seconds, int microseconds)
{
    if (!client || length < 1)
        return -1;
    if (!spipe_c_isConnect(client)) {
        std::printf("%s: lose connection.\n", __func__);
        return -1;
    }
    const int ready = can_read_with_timeout(client->fd, seconds, microseconds);
    if (ready < 0)
        return lose_connection(client, "error 1");
    if (ready == 0)
        return 0;
    const ssize_t got = read(client->fd, buffer, static_cast<std::size_t>(length));
    return got > 0 ? static_cast<int>(got) : lose_connection(client, "error 2");
}

int spipe_c_getFd(const spipe_client *client)
{
    return client ? client->fd : 0;
}

int spipe_c_disconnect(spipe_client *client)
{
    if (!client)
        return -1;
    close_one(client->fd);
    return 0;
}

int spipe_c_destroy(spipe_client **client)
{
    if (client) {
        spipe_c_disconnect(*client);
        delete std::exchange(*client, nullptr);
    }
    return 0;
}
