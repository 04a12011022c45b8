#include "ipc/network/sck_svr.h"

#include "ipc/network/fd.h"
#include "ipc/network/recent.h"
#include "ipc/network/rest.h"
#include "ipc/network/socket.h"
#include "util/owned_text.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <span>
#include <utility>

#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr int listen_backlog = 5;
constexpr std::uint32_t header_size = sizeof(std::uint32_t); // the length in front of a payload

// What servers and clients have besides the described records, which they are allocated with. The
// lock guards it, but for the timer and the process number.
struct Server : sck_svr_t {
    ~Server();

    event_owner restTimer; // wakes the listener after a failed accept
    sck_counts_t counts;
    va::RecentGreatest longest;
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

using Bytes = std::span<const std::uint8_t>;

Bytes bytes_of(const void *data, std::uint32_t length)
{
    return {static_cast<const std::uint8_t *>(data), length};
}

// A buffer of several pages is a mapping of its own: pages that no byte has reached cost nothing,
// and all of them go back to the system with the client.
constexpr std::uint32_t mapped_size = 4 * 4096;

std::uint8_t *allocate_zeroed(std::uint32_t size)
{
    if (size < mapped_size)
        return new (std::nothrow) std::uint8_t[size]();
    void *const pages =
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return pages == MAP_FAILED ? nullptr : static_cast<std::uint8_t *>(pages);
}

void free_zeroed(std::uint8_t *data, std::uint32_t size)
{
    if (size < mapped_size)
        delete[] data;
    else
        munmap(data, size);
}

// Positions do not overflow however large the ring.
std::uint32_t advance(const sck_buf_t &ring, std::uint32_t position, std::uint32_t count)
{
    const std::uint32_t to_end = ring.size - position;
    return count < to_end ? position + count : count - to_end;
}

bool has_room(const sck_buf_t &ring, std::uint32_t length)
{
    const std::uint32_t room = ring.size - 1 - ring.count;
    return room >= header_size && length <= room - header_size;
}

// Copies `bytes` to `position` on. Returns the position after them.
std::uint32_t put(const sck_buf_t &ring, std::uint32_t position, Bytes bytes)
{
    const Bytes front = bytes.first(std::min<std::size_t>(bytes.size(), ring.size - position));
    const Bytes wrapped = bytes.subspan(front.size());
    std::ranges::copy(front, ring.data + position);
    std::ranges::copy(wrapped, ring.data);
    return advance(ring, position, static_cast<std::uint32_t>(bytes.size()));
}

// The caller has seen that there is room.
void put_frame(sck_buf_t &ring, Bytes payload)
{
    const auto length = static_cast<std::uint32_t>(payload.size());
    const std::uint32_t frame_size = header_size + length;
    if (frame_size < ring.size - ring.writePos) { // ends before the array does, as a rule
        std::uint8_t *const frame = ring.data + ring.writePos;
        std::memcpy(frame, &length, header_size);
        std::memcpy(frame + header_size, payload.data(), length);
        ring.writePos += frame_size;
    } else {
        ring.writePos = put(ring, ring.writePos, bytes_of(&length, header_size));
        ring.writePos = put(ring, ring.writePos, payload);
    }
    ring.count += frame_size;
}

// The queued bytes up to the array's end; a queue that wraps goes on at its start.
Bytes first_run(const sck_buf_t &ring)
{
    return bytes_of(ring.data + ring.readPos, std::min(ring.count, ring.size - ring.readPos));
}

// An emptied ring starts over, so that few records at a time stay in few cache lines and pages.
void take_out(sck_buf_t &ring, std::uint32_t count)
{
    ring.count -= count;
    ring.readPos = ring.count > 0 ? advance(ring, ring.readPos, count) : 0;
    if (ring.count == 0)
        ring.writePos = 0;
}

void refuse(Client *client, Bytes payload)
{
    ++client->refused;
    client->refusedBytes += payload.size();
}

// Returns how many clients had no room.
int queue_for_all(Server *server, Bytes payload)
{
    int refused = 0;
    std::uint64_t now = 0; // read when first wanted
    const std::scoped_lock lock(server->lock);
    for (Client *client = own(server->clients); client; client = own(client->next)) {
        if (!has_room(client->send, static_cast<std::uint32_t>(payload.size()))) {
            refuse(client, payload);
            ++refused;
            continue;
        }
        if (client->send.count == 0)
            set_event_enabled(client->writeEvent, 1);
        if (now == 0 && client->timer.wants_time())
            now = clock_us();
        put_frame(client->send, payload);
        client->timer.put(now, client->send.count);
    }
    ++server->counts.records;
    server->counts.bytes += payload.size();
    server->counts.refused += static_cast<std::uint64_t>(refused);
    return refused;
}

void link_client(Client *client)
{
    Server *const server = own(client->server);
    client->before = server->counts;
    client->next = server->clients;
    if (client->next)
        client->next->prev = client;
    server->clients = client;
}

void unlink_client(sck_clt_t *client)
{
    if (client->next)
        client->next->prev = client->prev;
    if (client->prev)
        client->prev->next = client->next;
    else
        client->server->clients = client->next;
}

// Hands out the record, which ends the connection: without the lock, which is held here.
[[nodiscard]] std::unique_ptr<Client> disconnect(Client *client, const char *reporter)
{
    std::printf("%s: client disconnect.\n", reporter);
    unlink_client(client);
    return std::unique_ptr<Client>(client);
}

// Some records' way to the socket has ended.
void note_way(Client *client)
{
    const std::uint64_t now = clock_us();
    const std::uint64_t time = client->timer.end(now, client->send.count);
    own(client->server)
        ->longest.add(now, static_cast<std::uint32_t>(std::min<std::uint64_t>(time, UINT32_MAX)));
}

// One write. Returns whether the connection still stands.
bool drain(Client *client)
{
    const Bytes run = first_run(client->send);
    if (run.empty())
        return true;
    const ssize_t written = send(client->socket, run.data(), run.size(), MSG_NOSIGNAL);
    if (written > 0) {
        const auto count = static_cast<std::uint32_t>(written);
        take_out(client->send, count);
        if (client->timer.take(count))
            note_way(client);
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
    sck_svr_t *const server = client->server;
    std::unique_ptr<Client> gone; // outlives the lock
    const std::scoped_lock lock(server->lock);
    if (!drain(client))
        gone = disconnect(client, server->path);
    else if (client->send.count == 0)
        set_event_enabled(client->writeEvent, 0);
    return 0;
}

std::int32_t sck_clt_event_read(event_info *, void *arg)
{
    auto *const client = static_cast<Client *>(arg);
    sck_svr_t *const server = client->server;
    sck_buf_t &ring = client->recv;
    if (ring.writePos >= ring.readPos) {
        const ssize_t got =
            read(client->socket, ring.data + ring.writePos, ring.size - ring.writePos);
        if (got <= 0) {
            std::unique_ptr<Client> gone; // outlives the lock
            const std::scoped_lock lock(server->lock);
            gone = disconnect(client, __func__);
            return 0;
        }
        ring.writePos = advance(ring, ring.writePos, static_cast<std::uint32_t>(got));
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

sck_clt_status_t status_of(const Client &client)
{
    const sck_counts_t &all = own(client.server)->counts;
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
    const std::scoped_lock lock(server->lock);
    link_client(client.release());
    return 0;
}

} // namespace

int sck_svr_init(sck_svr_t **slot, const char *path, std::uint32_t size)
{
    if (!path) {
        std::printf("%s: error\n", __func__);
        return -1;
    }
    if (!slot || size <= header_size)
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
    for (int refused = queue_for_all(own(server), bytes_of(data, length)); refused > 0; --refused)
        std::printf("Can't write data to client.sck_path=%s\n", server->path.get());
    return 0;
}

int sck_svr_get_client_count(sck_svr_t *server)
{
    if (!server)
        return -1;
    int count = 0;
    const std::scoped_lock lock(server->lock);
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
        const std::scoped_lock lock(server.lock);
        found.counts = server.counts;
        found.longest_us = server.longest.at(clock_us());
        for (sck_clt_t *client = server.clients; client; client = client->next)
            found.clients.push_back(status_of(*own(client)));
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

sck_buf_t::~sck_buf_t()
{
    free_zeroed(data, size);
}

int sck_buf_init(sck_buf_t *buffer, std::uint32_t size)
{
    std::uint8_t *const data = allocate_zeroed(size);
    if (!data)
        return -1;
    free_zeroed(buffer->data, buffer->size);
    buffer->data = data;
    buffer->size = size;
    buffer->count = 0;
    buffer->readPos = 0;
    buffer->writePos = 0;
    return 0;
}

int sck_clt_ignore_read(sck_clt_t *client, void *)
{
    client->recv.count = 0;
    client->recv.readPos = 0;
    client->recv.writePos = 0;
    return 0;
}
