#include "ipc/network/sck_svr.h"

#include "ipc/network/recent.h"
#include "ipc/network/rest.h"
#include "ipc/network/socket.h"
#include "util/fd.h"
#include "util/owned_text.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <memory>
#include <new>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr int listen_backlog = 5;

// What servers and clients have besides the described records, which they are allocated with. The
// lock guards it, but for the timers and the process number. Functions on a client that need the
// lock are told its server, so that it has one name.
struct Server : sck_svr_t {
    ~Server();

    event_owner restTimer; // wakes the listener after a failed accept
    sck_counts_t counts VA_GUARDED_BY(lock);
    va::RecentGreatest longest VA_GUARDED_BY(lock);
};

struct Client : sck_clt_t {
    va::QueueTimer timer;
    std::int32_t pid;
    sck_counts_t before;        // the server's counts when it was linked; what came since, and was
    std::uint64_t refused;      // not refused, has been queued
    std::uint64_t refusedBytes; // payloads
};

Server *own(sck_svr_t *server)
{
    return static_cast<Server *>(server);
}

Client *own(sck_clt_t *client)
{
    return static_cast<Client *>(client);
}

Server::~Server()
{
    while (clients)
        delete own(std::exchange(clients, clients->next));
}

std::uint64_t clock_us()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000 +
           static_cast<std::uint64_t>(time.tv_nsec / 1000);
}

void refuse(Client *client, sck_bytes payload)
{
    ++client->refused;
    client->refusedBytes += payload.size();
}

// Returns how many clients had no room.
int queue_for_all(Server *server, sck_bytes payload)
{
    int refused = 0;
    std::uint64_t now = 0; // read when first wanted
    const va::ScopedLock lock(server->lock);
    for (Client *client = own(server->clients); client; client = own(client->next)) {
        if (!sck_buf_has_room(client->send, static_cast<std::uint32_t>(payload.size()))) {
            refuse(client, payload);
            ++refused;
            continue;
        }
        if (client->send.count == 0)
            set_event_enabled(client->writeEvent, 1);
        if (now == 0 && client->timer.wants_time())
            now = clock_us();
        sck_buf_put_frame(client->send, payload);
        client->timer.put(now, client->send.count);
    }
    ++server->counts.records;
    server->counts.bytes += payload.size();
    server->counts.refused += static_cast<std::uint64_t>(refused);
    return refused;
}

void link_client(Server *server, Client *client) VA_REQUIRES(server->lock)
{
    client->before = server->counts;
    client->next = server->clients;
    if (client->next)
        client->next->prev = client;
    server->clients = client;
}

void unlink_client(Server *server, sck_clt_t *client) VA_REQUIRES(server->lock)
{
    if (client->next)
        client->next->prev = client->prev;
    if (client->prev)
        client->prev->next = client->next;
    else
        server->clients = client->next;
}

// Hands out the record, which ends the connection: without the lock, which is held here.
[[nodiscard]] std::unique_ptr<Client> disconnect(Server *server, Client *client,
                                                 const char *reporter) VA_REQUIRES(server->lock)
{
    std::printf("%s: client disconnect.\n", reporter);
    unlink_client(server, client);
    return std::unique_ptr<Client>(client);
}

// Some records' way to the socket has ended.
void note_way(Server *server, Client *client) VA_REQUIRES(server->lock)
{
    const std::uint64_t now = clock_us();
    const std::uint64_t time = client->timer.end(now, client->send.count);
    server->longest.add(now, static_cast<std::uint32_t>(std::min<std::uint64_t>(time, UINT32_MAX)));
}

// One write. Returns whether the connection still stands.
bool drain(Server *server, Client *client) VA_REQUIRES(server->lock)
{
    const sck_bytes run = sck_buf_first_run(client->send);
    if (run.empty())
        return true;
    const ssize_t written = send(client->socket, run.data(), run.size(), MSG_NOSIGNAL);
    if (written > 0) {
        const auto count = static_cast<std::uint32_t>(written);
        sck_buf_take_out(client->send, count);
        if (client->timer.take(count))
            note_way(server, client);
        return true;
    }
    const bool try_again = written < 0 && errno == EAGAIN;
    std::printf("write error. ret = %d, len=%d\n", static_cast<int>(written),
                static_cast<int>(run.size()));
    return try_again;
}

std::int32_t sck_clt_event_write(event_info *, void *arg)
{
    auto *const client = static_cast<Client *>(arg);
    Server *const server = own(client->server);
    std::unique_ptr<Client> gone; // outlives the lock
    const va::ScopedLock lock(server->lock);
    if (!drain(server, client))
        gone = disconnect(server, client, server->path);
    else if (client->send.count == 0)
        set_event_enabled(client->writeEvent, 0);
    return 0;
}

std::int32_t sck_clt_event_read(event_info *, void *arg)
{
    auto *const client = static_cast<Client *>(arg);
    Server *const server = own(client->server);
    sck_buf_t &ring = client->recv;
    if (ring.writePos >= ring.readPos) {
        const ssize_t got =
            read(client->socket, ring.data + ring.writePos, ring.size - ring.writePos);
        if (got <= 0) {
            std::unique_ptr<Client> gone; // outlives the lock
            const va::ScopedLock lock(server->lock);
            gone = disconnect(server, client, __func__);
            return 0;
        }
        ring.writePos = sck_buf_advance(ring, ring.writePos, static_cast<std::uint32_t>(got));
    }
    server->recvHandler(client, server->recvArg);
    return 0;
}

// The process at the other end, 0 when unknown.
std::int32_t peer_of(int connection)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size);
    return peer.pid;
}

sck_clt_status_t status_of(const Server &server, const Client &client) VA_REQUIRES(server.lock)
{
    const sck_counts_t &all = server.counts;
    return {client.pid,
            client.send.count,
            {all.records - client.before.records - client.refused,
             all.bytes - client.before.bytes - client.refusedBytes, client.refused}};
}

// A client that is not on the list yet; null when memory is short or the loop cannot serve it.
std::unique_ptr<Client> new_client(Server *server, Fd connection)
{
    std::unique_ptr<Client> client(new (std::nothrow) Client{});
    if (!client || sck_buf_init(&client->send, server->size) == -1 ||
        sck_buf_init(&client->recv, server->size) == -1)
        return nullptr;
    client->server = server;
    client->pid = peer_of(connection);
    client->readEvent.reset(add_fd_event(connection, 0, 0, sck_clt_event_read, client.get()));
    client->writeEvent.reset(
        add_fd_event(connection, 1, EVENT_ASLEEP, sck_clt_event_write, client.get()));
    client->socket = std::move(connection);
    return client->readEvent && client->writeEvent ? std::move(client) : nullptr;
}

std::int32_t sck_svr_event_accept(event_info *, void *arg)
{
    auto *const server = static_cast<Server *>(arg);
    Fd connection(accept4(server->socket, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!connection) {
        std::puts("ERR## accept fail.");
        va::rest_listener(server->restTimer);
        return 0;
    }
    std::printf("%s: accept client. previous clients=%d\n", server->path.get(),
                sck_svr_get_client_count(server));
    std::unique_ptr<Client> client = new_client(server, std::move(connection));
    if (!client) {
        std::fprintf(stderr, "%s: can't serve client.\n", server->path.get());
        return 0;
    }
    const va::ScopedLock lock(server->lock);
    link_client(server, client.release());
    return 0;
}

} // namespace

int sck_svr_init(sck_svr_t **slot, const char *path, std::uint32_t size)
{
    if (!path) {
        std::printf("%s: error\n", __func__);
        return -1;
    }
    if (!slot || size <= sizeof(std::uint32_t))
        return -1;
    std::unique_ptr<Server> server(new (std::nothrow) Server{});
    if (!server)
        return -1;
    server->path = copy_text(path);
    int listener = -1;
    if (!server->path || unix_domain_socket_init(&listener, path, listen_backlog) == -1)
        return -1;
    server->socket.reset(listener);
    server->size = size;
    server->recvHandler = sck_clt_ignore_read;
    server->acceptEvent.reset(add_fd_event(listener, 0, 0, sck_svr_event_accept, server.get()));
    if (!server->acceptEvent)
        return -1;
    server->restTimer = va::add_rest_timer(server->acceptEvent);
    if (!server->restTimer)
        return -1;
    *slot = server.release();
    return 0;
}

int sck_svr_write(sck_svr_t *server, const void *data, std::uint32_t length)
{
    if (!server)
        return -1;
    if (length == 0)
        return 0;
    // Printed without the lock: standard output may block, and must not hold up the loop with it.
    for (int refused =
             queue_for_all(own(server), {static_cast<const std::uint8_t *>(data), length});
         refused > 0; --refused)
        std::printf("Can't write data to client.sck_path=%s\n", server->path.get());
    return 0;
}

int sck_svr_get_client_count(sck_svr_t *server)
{
    if (!server)
        return -1;
    int count = 0;
    const va::ScopedLock lock(server->lock);
    for (const sck_clt_t *client = server->clients; client; client = client->next)
        ++count;
    return count;
}

int sck_svr_get_status(sck_svr_t *handle, sck_svr_status_t *status)
{
    if (!handle || !status)
        return -1;
    Server &server = *own(handle);
    sck_svr_status_t found{};
    try {
        const va::ScopedLock lock(server.lock);
        found.counts = server.counts;
        found.longest_us = server.longest.at(clock_us());
        for (sck_clt_t *client = server.clients; client; client = client->next)
            found.clients.push_back(status_of(server, *own(client)));
    } catch (const std::bad_alloc &) {
        return -1;
    }
    *status = std::move(found);
    return 0;
}

int sck_svr_set_recv_callback(sck_svr_t *server, sck_recv_handler handler, void *arg)
{
    if (!server)
        return -1;
    server->recvHandler = handler;
    server->recvArg = arg;
    return 0;
}

void sck_svr_release(sck_svr_t **slot)
{
    if (slot)
        delete own(std::exchange(*slot, nullptr));
}

int sck_clt_ignore_read(sck_clt_t *client, void *)
{
    client->recv.count = 0;
    client->recv.readPos = 0;
    client->recv.writePos = 0;
    return 0;
}
