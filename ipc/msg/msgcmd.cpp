#include "ipc/msg/msgcmd.h"

#include "ipc/network/socket.h"
#include "util/fd.h"
#include "util/guarded.h"
#include "util/sequence_pool.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

namespace
{

// What a client has besides the described record, which it is allocated with.
struct Client : msgcmd {
    ~Client();

    // Guards the connection, its events and the callbacks; and that an enabled write event means
    // queued bytes.
    std::mutex lock;
};

Client *own(msgcmd *client)
{
    return static_cast<Client *>(client);
}

using Chunk = std::array<char, MSGCMD_CHUNK_SIZE>;

// What an event of the connection works with, as it stands when the event is served; the callbacks
// are called without the lock and may release the client. Asked for before a connection is given
// up: afterwards a sender may connect again.
struct Connection {
    int fd;
    msgcmd_read_callback read_cb;
    msgcmd_write_callback write_cb;
    void *cb_arg;
};

Connection connection_of(Client *client)
{
    const va::ScopedLock lock(client->lock);
    return {client->fd, client->read_cb, client->write_cb, client->cb_arg};
}

int send_some(int fd, const void *data, std::size_t length)
{
    return static_cast<int>(send(fd, data, length, MSG_NOSIGNAL));
}

void disconnect_after_failure(Client *client)
{
    std::printf("%s: close or error.\n", client->path);
    msgcmd_close(client);
}

// Takes out the next bytes to write. Returns how many.
unsigned take_chunk(Client *client, Chunk &chunk)
{
    const auto queued = static_cast<unsigned>(seqpool_askDataSize(client->pool));
    const auto count = std::min<unsigned>(queued, MSGCMD_CHUNK_SIZE);
    seqpool_readData(client->pool, chunk.data(), count);
    return count;
}

// Senders queue and enable under the same lock, so none of their bytes is left behind a disabled
// event.
void disable_when_empty(Client *client)
{
    const va::ScopedLock lock(client->lock);
    if (seqpool_askDataSize(client->pool) == 0)
        set_event_enabled(client->write_event, 0);
}

// Makes `socket` the client's connection. Returns false, having changed nothing, when it cannot be
// put on the loop.
bool install(Client *client, Fd &socket) VA_REQUIRES(client->lock)
{
    client->read_event =
        add_fd_event(socket.get(), 0, 0, msgcmd_on_read, static_cast<msgcmd *>(client));
    if (!client->read_event)
        return false;
    client->fd = socket.release();
    return true;
}

void disconnect(Client *client) VA_REQUIRES(client->lock)
{
    remove_event(std::exchange(client->write_event, nullptr));
    remove_event(std::exchange(client->read_event, nullptr));
    Fd(std::exchange(client->fd, -1)).reset();
    seqpool_clearData(client->pool);
}

Client::~Client()
{
    va::assume_locked(lock);
    disconnect(this);
    seqpool_destroy(&pool);
    std::free(path);
}

// Returns whether the connection's write event is there. A connection without one stays open: only
// the loop thread may close what it waits for. The next send tries again.
bool ensure_write_event(Client *client) VA_REQUIRES(client->lock)
{
    if (!client->write_event)
        client->write_event = add_fd_event(client->fd, 1, EVENT_ASLEEP, msgcmd_on_write,
                                           static_cast<msgcmd *>(client));
    return client->write_event;
}

enum class Outcome { Queued, Disconnected, NoEvent, NoRoom };

// `socket`, when open, becomes the connection if there is none; it stays the caller's if there is.
Outcome queue(Client *client, Fd &socket, const void *data, unsigned length)
{
    const va::ScopedLock lock(client->lock);
    if (client->fd < 0 && !socket)
        return Outcome::Disconnected;
    if ((client->fd < 0 && !install(client, socket)) || !ensure_write_event(client))
        return Outcome::NoEvent;
    if (seqpool_writeData(client->pool, data, length) == -1)
        return Outcome::NoRoom;
    set_event_enabled(client->write_event, 1);
    return Outcome::Queued;
}

Fd connect_to(const char *path)
{
    int connected = -1;
    unix_domain_socket_connect(&connected, path);
    return Fd(connected);
}

} // namespace

int msgcmd_block_write(const char *path, const void *data, unsigned length)
{
    if (length == 0)
        return 0;
    const Fd socket = connect_to(path);
    if (!socket)
        return -1;
    const int written = send_some(socket.get(), data, length);
    if (written < 1) {
        std::printf("%s: fail. ret = %d\n", __func__, written);
        return -1;
    }
    if (static_cast<unsigned>(written) < length)
        std::printf("%s: data lose.\n", __func__);
    return 0;
}

int msgcmd_init(msgcmd **out, const char *path, unsigned size)
{
    if (!out || !path)
        return -1;
    *out = nullptr;
    std::unique_ptr<Client> client(new (std::nothrow) Client{});
    if (client) {
        client->fd = -1;
        client->path = strdup(path);
    }
    if (!client || !client->path) {
        std::printf("%s: Can't alloc memory!\n", __func__);
        return -1;
    }
    client->pool_size = size;
    if (seqpool_init(&client->pool, size) == -1)
        return -1;
    *out = client.release();
    return 0;
}

void msgcmd_setcb(msgcmd *client, msgcmd_read_callback read_cb, msgcmd_write_callback write_cb,
                  void *cb_arg)
{
    if (!client)
        return;
    const va::ScopedLock lock(own(client)->lock);
    client->read_cb = read_cb;
    client->write_cb = write_cb;
    client->cb_arg = cb_arg;
}

int msgcmd_noblock_write(msgcmd *client, const void *data, unsigned length)
{
    if (!client)
        return -1;
    if (length == 0)
        return 0;
    Client *const sender = own(client);
    Fd socket; // closed here when another sender has connected meanwhile
    Outcome outcome = queue(sender, socket, data, length);
    if (outcome == Outcome::Disconnected) {
        socket = connect_to(sender->path); // without the lock: it may wait for the server
        if (socket)
            outcome = queue(sender, socket, data, length);
    }
    if (outcome == Outcome::NoRoom)
        std::printf("%s: buffer size is not enough. data will be losed.\n", __func__);
    return outcome == Outcome::Queued ? 0 : -1;
}

std::int32_t msgcmd_on_write(event_info *, void *arg)
{
    Client *const client = own(static_cast<msgcmd *>(arg));
    assert(is_loop_thread());
    const Connection connection = connection_of(client);
    Chunk chunk;
    const unsigned count = take_chunk(client, chunk);
    if (count == 0) // the event was armed before it was disabled
        return 0;
    const int written = send_some(connection.fd, chunk.data(), count);
    if (written < 1) {
        disconnect_after_failure(client);
    } else {
        if (static_cast<unsigned>(written) < count)
            std::printf("data lose when write to %s\n", client->path);
        disable_when_empty(client);
    }
    if (connection.write_cb)
        connection.write_cb(written, connection.cb_arg);
    return 0;
}

std::int32_t msgcmd_on_read(event_info *, void *arg)
{
    Client *const client = own(static_cast<msgcmd *>(arg));
    assert(is_loop_thread());
    const Connection connection = connection_of(client);
    Chunk chunk;
    const auto got = static_cast<int>(read(connection.fd, chunk.data(), chunk.size()));
    if (got < 1)
        disconnect_after_failure(client);
    if (connection.read_cb)
        connection.read_cb(got, chunk.data(), connection.cb_arg);
    return 0;
}

void msgcmd_close(msgcmd *client)
{
    if (!client)
        return;
    assert(is_loop_thread());
    const va::ScopedLock lock(own(client)->lock);
    disconnect(own(client));
}

void msgcmd_release(msgcmd **client)
{
    assert(is_loop_thread());
    if (client)
        delete own(std::exchange(*client, nullptr));
}
