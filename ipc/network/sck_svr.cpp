#include "ipc/network/sck_svr.h"

#include "ipc/network/serving.h"
#include "ipc/network/socket.h"
#include "util/guarded.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr int listen_backlog = 5;

// Most bytes of one read: a client that sends makes no more of its buffer resident.
constexpr std::uint32_t most_read = 4096;

using Lines = va::ClientLines;

// What servers and clients have besides the described records, which they are allocated with. The
// lock guards it, but for the timer, the lines, the process number and `failedAccepts`, which the
// loop thread counts. Functions on a client that need the lock are passed its server, so that it
// has one name.
struct Server : sck_svr_t {
    Server() : sck_svr_t{}
    {
        socket = -1;
        pthread_mutex_init(&lock, nullptr);
    }
    ~Server();

    va::EventOwner acceptPause; // after a failed accept
    va::ClientLines lines;
    std::atomic<std::uint64_t> failedAccepts{0};
    sck_counts_t counts VA_GUARDED_BY(lock){};
    va::RecentGreatest longest VA_GUARDED_BY(lock);
};

struct Client : sck_clt_t {
    Client() : sck_clt_t{} { socket = -1; }
    ~Client();
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    va::QueueTimer timer;
    std::int32_t pid = 0;
    sck_counts_t before{};          // the server's counts when it was linked; what followed, and
    std::uint64_t refused = 0;      // was not refused, has been queued
    std::uint64_t refusedBytes = 0; // payloads
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
    remove_event(acceptEvent);
    Fd(socket).reset();
    std::free(path);
    while (clients)
        delete own(std::exchange(clients, clients->next));
    pthread_mutex_destroy(&lock);
}

Client::~Client()
{
    remove_event(writeEvent);
    remove_event(readEvent);
    Fd(socket).reset();
    sck_buf_release(&send);
    sck_buf_release(&recv);
}

// With the test in place: a call for each record and client takes a tenth of the whole.
void enable(event *write_event)
{
    if (!(va::load_shared(write_event->flags, std::memory_order_relaxed) & EVENT_ENABLED))
        set_event_enabled(write_event, 1);
}

// Returns how many clients had no space.
std::uint32_t queue_for_all(Server *server, sck_bytes payload)
{
    std::uint32_t refused = 0;
    std::uint64_t now = 0; // read when first wanted
    const va::ScopedLock lock(server->lock);
    for (Client *client = own(server->clients); client; client = own(client->next)) {
        if (!sck_buf_has_room(client->send, static_cast<std::uint32_t>(payload.size()))) {
            ++client->refused;
            client->refusedBytes += payload.size();
            ++refused;
            continue;
        }
        enable(client->writeEvent);
        if (now == 0 && client->timer.wants_time())
            now = va::monotonic_us();
        sck_buf_put_frame(client->send, payload);
        client->timer.put(now, client->send.count);
    }
    ++server->counts.records;
    server->counts.bytes += payload.size();
    server->counts.refused += refused;
    return refused;
}

// Ends the connection; loop thread, without the lock.
void disconnect(Server *server, Client *client, const char *reporter)
{
    if (server->lines.to_print(Lines::disconnected))
        std::printf("%s: client disconnect.\n", reporter);
    const std::unique_ptr<Client> gone(client); // outlives the lock
    const va::ScopedLock lock(server->lock);
    va::unlink_node<sck_clt_t>(&server->clients, client);
}

// A group of records has gone to the socket.
void note_time(Server *server, Client *client) VA_REQUIRES(server->lock)
{
    const std::uint64_t now = va::monotonic_us();
    const std::uint64_t time = client->timer.end(now, client->send.count);
    server->longest.add(now, static_cast<std::uint32_t>(std::min<std::uint64_t>(time, UINT32_MAX)));
}

struct Written {
    ssize_t result;
    std::size_t length; // of what was to be written
    int error;
};

// One write of what is queued, if anything is.
Written drain(Server *server, Client *client)
{
    const va::ScopedLock lock(server->lock);
    const sck_bytes run = sck_buf_first_run(client->send);
    Written written{0, run.size(), 0};
    if (!run.empty()) {
        written.result = send(client->socket, run.data(), run.size(), MSG_NOSIGNAL);
        written.error = errno;
    }
    if (written.result > 0) {
        const auto count = static_cast<std::uint32_t>(written.result);
        sck_buf_take_out(client->send, count);
        if (client->timer.take(count))
            note_time(server, client);
    }
    if (client->send.count == 0)
        set_event_enabled(client->writeEvent, 0);
    return written;
}

std::int32_t sck_clt_event_write(event_info *, void *arg)
{
    Client *const client = own(static_cast<sck_clt_t *>(arg));
    Server *const server = own(client->server);
    const Written written = drain(server, client);
    if (written.result > 0 || written.length == 0)
        return 0;
    // Printed without the lock, like everything: the producer must not wait for standard output.
    if (server->lines.to_print(Lines::write_failed))
        std::printf("write error. ret = %d, len=%d\n", static_cast<int>(written.result),
                    static_cast<int>(written.length));
    if (written.result == 0 || written.error != EAGAIN)
        disconnect(server, client, server->path);
    return 0;
}

std::int32_t sck_clt_event_read(event_info *, void *arg)
{
    Client *const client = own(static_cast<sck_clt_t *>(arg));
    Server *const server = own(client->server);
    sck_buf_t &ring = client->recv;
    if (ring.writePos >= ring.readPos) {
        const ssize_t got = read(client->socket, ring.data + ring.writePos,
                                 std::min(ring.size - ring.writePos, most_read));
        if (got <= 0) {
            disconnect(server, client, __func__);
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
    std::unique_ptr<Client> client(new (std::nothrow) Client);
    if (!client || sck_buf_init(&client->send, server->size) == -1 ||
        sck_buf_init(&client->recv, server->size) == -1)
        return nullptr;
    void *const arg = static_cast<sck_clt_t *>(client.get());
    client->server = server;
    client->socket = connection.release();
    client->pid = peer_of(client->socket);
    client->readEvent = add_fd_event(client->socket, 0, 0, sck_clt_event_read, arg);
    client->writeEvent = add_fd_event(client->socket, 1, EVENT_ASLEEP, sck_clt_event_write, arg);
    return client->readEvent && client->writeEvent ? std::move(client) : nullptr;
}

// None, the connection still pending, when no descriptor is left that the loop could wait for.
Fd accept_one(int listener)
{
    Fd next(fcntl(listener, F_DUPFD_CLOEXEC, 0)); // the one that it would get
    if (!next || next.get() >= FD_SETSIZE)
        return Fd();
    next.reset();
    return Fd(accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
}

std::int32_t sck_svr_event_accept(event_info *, void *arg)
{
    Server *const server = own(static_cast<sck_svr_t *>(arg));
    Fd connection = accept_one(server->socket);
    if (!connection) {
        ++server->failedAccepts;
        std::puts("ERR## accept fail.");
        va::pause_accepts(server->acceptPause.get());
        return 0;
    }
    if (server->lines.to_print(Lines::accepted))
        std::printf("%s: accept client. previous clients=%d\n", server->path,
                    sck_svr_get_client_count(server));
    std::unique_ptr<Client> client = new_client(server, std::move(connection));
    if (!client) {
        std::fprintf(stderr, "%s: can't serve client.\n", server->path);
        return 0;
    }
    const va::ScopedLock lock(server->lock);
    client->before = server->counts;
    va::push_front<sck_clt_t>(&server->clients, client.release());
    return 0;
}

bool add_events(Server *server)
{
    void *const arg = static_cast<sck_svr_t *>(server);
    server->acceptEvent = add_fd_event(server->socket, 0, 0, sck_svr_event_accept, arg);
    if (!server->acceptEvent)
        return false;
    server->acceptPause = va::add_accept_pause(server->acceptEvent);
    return server->acceptPause && server->lines.start(server->path);
}

bool listens(const Server &server)
{
    int listening = 0;
    socklen_t size = sizeof listening;
    return getsockopt(server.socket, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) == 0 &&
           listening != 0;
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
    std::unique_ptr<Server> server(new (std::nothrow) Server);
    if (!server)
        return -1;
    server->path = strdup(path);
    if (!server->path || unix_domain_socket_init(&server->socket, path, listen_backlog) == -1)
        return -1;
    server->size = size;
    server->recvHandler = sck_clt_ignore_read;
    if (!add_events(server.get()))
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
    const sck_bytes payload(static_cast<const std::uint8_t *>(data), length);
    const std::uint32_t refused = queue_for_all(own(server), payload);
    if (refused == 0)
        return 0;
    for (std::uint32_t due = own(server)->lines.to_print(Lines::no_room, refused); due > 0; --due)
        std::printf("Can't write data to client.sck_path=%s\n", server->path);
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

int sck_svr_get_status(sck_svr_t *server, sck_svr_status_t *status)
{
    if (!server || !status)
        return -1;
    Server &asked = *own(server);
    sck_svr_status_t found{};
    found.failed_accepts = asked.failedAccepts;
    found.listens = listens(asked);
    try {
        const va::ScopedLock lock(asked.lock);
        found.counts = asked.counts;
        found.longest_us = asked.longest.at(va::monotonic_us());
        for (sck_clt_t *client = asked.clients; client; client = client->next)
            found.clients.push_back(status_of(asked, *own(client)));
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
    assert(is_loop_thread());
    server->recvHandler = handler;
    server->recvArg = arg;
    return 0;
}

void sck_svr_release(sck_svr_t **slot)
{
    assert(is_loop_thread());
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
