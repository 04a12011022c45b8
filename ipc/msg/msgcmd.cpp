#include "ipc/msg/msgcmd.h"

#include "event/event.h"
#include "ipc/network/fd.h"
#include "ipc/network/socket.h"
#include "util/owned_text.h"
#include "util/sequence_pool.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <new>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr std::int32_t no_fd = -1;

using Chunk = std::array<char, MSGCMD_CHUNK_SIZE>;

struct Callbacks {
    msgcmd_read_callback read;
    msgcmd_write_callback write;
    void *arg;
};

// As they stand now, to be called without the lock; they may release the client. Asked for before a
// connection is given up: afterwards a sender may hold the lock while it connects again, and the
// loop must not wait for that.
Callbacks callbacks_of(msgcmd *client)
{
    const std::scoped_lock lock(client->lock);
    return {client->read_cb, client->write_cb, client->cb_arg};
}

int send_some(int fd, const void *data, std::size_t length)
{
    return static_cast<int>(send(fd, data, length, MSG_NOSIGNAL));
}

void disconnect_after_failure(msgcmd *client)
{
    std::printf("%s: close or error.\n", client->path.get());
    msgcmd_close(client);
}

// Takes out the next bytes to write. Returns how many.
unsigned take_chunk(msgcmd *client, Chunk &chunk)
{
    const auto queued = static_cast<unsigned>(seqpool_askDataSize(client->pool));
    const auto count = std::min<unsigned>(queued, MSGCMD_CHUNK_SIZE);
    seqpool_readData(client->pool, chunk.data(), count);
    return count;
}

// Senders queue and enable under the same lock, so none of their bytes is left behind a disabled
// event.
void disable_when_empty(msgcmd *client)
{
    const std::scoped_lock lock(client->lock);
    if (seqpool_askDataSize(client->pool) == 0)
        set_event_enabled(client->write_event, 0);
}

std::int32_t msgcmd_on_write(event_info *info, void *arg)
{
    auto *const client = static_cast<msgcmd *>(arg);
    const Callbacks callbacks = callbacks_of(client);
    Chunk chunk;
    const unsigned count = take_chunk(client, chunk);
    if (count == 0) // the event was armed before it was disabled
        return 0;
    const int written = send_some(info->event->fd, chunk.data(), count);
    if (written < 1) {
        disconnect_after_failure(client);
    } else {
        if (static_cast<unsigned>(written) < count)
            std::printf("data lose when write to %s\n", client->path.get());
        disable_when_empty(client);
    }
    if (callbacks.write)
        callbacks.write(written, callbacks.arg);
    return 0;
}

std::int32_t msgcmd_on_read(event_info *info, void *arg)
{
    auto *const client = static_cast<msgcmd *>(arg);
    const Callbacks callbacks = callbacks_of(client);
    Chunk chunk;
    const auto got = static_cast<int>(read(info->event->fd, chunk.data(), chunk.size()));
    if (got < 1)
        disconnect_after_failure(client);
    if (callbacks.read)
        callbacks.read(got, chunk.data(), callbacks.arg);
    return 0;
}

// The functions from here to the namespace's end are called under the client's lock.

bool connect_client(msgcmd *client)
{
    int connected = no_fd;
    if (unix_domain_socket_connect(&connected, client->path.get()) == -1)
        return false;
    Fd socket(connected);
    client->read_event = add_fd_event(socket.get(), 0, EVENT_ENABLED, msgcmd_on_read, client);
    if (!client->read_event)
        return false;
    client->fd = socket.release();
    return true;
}

// Returns whether the client is connected and its write event there. A connection without one stays
// open: only the loop's thread may close what it waits for. The next send tries again.
bool make_ready(msgcmd *client)
{
    if (client->fd == no_fd && !connect_client(client))
        return false;
    if (!client->write_event) {
        client->write_event = add_fd_event(client->fd, 1, EVENT_ENABLED, msgcmd_on_write, client);
        if (client->write_event)
            set_event_enabled(client->write_event, 0); // nothing is queued
    }
    return client->write_event != nullptr;
}

enum class Outcome { Queued, NoConnection, NoRoom };

Outcome queue(msgcmd *client, const void *data, unsigned length)
{
    if (!make_ready(client))
        return Outcome::NoConnection;
    if (seqpool_writeData(client->pool, data, length) == -1)
        return Outcome::NoRoom;
    set_event_enabled(client->write_event, 1);
    return Outcome::Queued;
}

} // namespace

int msgcmd_block_write(const char *path, const void *data, unsigned length)
{
    if (length == 0)
        return 0;
    int connected = no_fd;
    if (unix_domain_socket_connect(&connected, path) == -1)
        return -1;
    const Fd socket(connected);
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
    std::unique_ptr<msgcmd> client(new (std::nothrow) msgcmd{});
    if (client)
        client->path = copy_text(path);
    if (!client || !client->path) {
        std::printf("%s: Can't alloc memory!\n", __func__);
        return -1;
    }
    client->fd = no_fd;
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
    const std::scoped_lock lock(client->lock);
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
    Outcome outcome;
    {
        const std::scoped_lock lock(client->lock);
        outcome = queue(client, data, length);
    }
    if (outcome == Outcome::NoRoom)
        std::printf("%s: buffer size is not enough. data will be losed.\n", __func__);
    return outcome == Outcome::Queued ? 0 : -1;
}

void msgcmd_close(msgcmd *client)
{
    if (!client)
        return;
    const std::scoped_lock lock(client->lock);
    if (client->fd >= 0)
        close(std::exchange(client->fd, no_fd));
    remove_event(std::exchange(client->write_event, nullptr));
    remove_event(std::exchange(client->read_event, nullptr));
    seqpool_clearData(client->pool);
}

void msgcmd_release(msgcmd **client)
{
    if (!client)
        return;
    const std::unique_ptr<msgcmd> owned(std::exchange(*client, nullptr));
    if (!owned)
        return;
    msgcmd_close(owned.get());
    seqpool_destroy(&owned->pool);
}
