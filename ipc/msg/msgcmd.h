#pragma once

#include "event/loop.h"

#include <cstdint>
#include <type_traits>

// Control-message client: sends bytes to a control-message server in socket mode (ipc/msg/msg.h),
// or to any other Unix-domain stream socket. Nothing is added to the bytes: the caller composes the
// server's items, such as the command line "reconfig\n".
//
// Such a server answers the first item of a connection with "OK\n" and closes it. So one item, or
// several sent as one, go out per connection; the next one belongs after the end of the connection
// has been reported. What is queued when a connection ends is dropped.
//
// Two ways to send: msgcmd_block_write() connects, writes and closes. A msgcmd keeps a queue of
// bytes, which the event loop (event/event.h) writes whenever the socket can take them.
//
// The loop thread runs the callbacks. msgcmd_noblock_write() and msgcmd_setcb() may be called
// from any thread, by several at a time, and from the callbacks. Sending does not wake the loop:
// what another thread queues goes out from the next cycle on, so keep a periodic timer running to
// bound the delay. A send that has to connect waits while the server's backlog is full, alone: the
// loop and other senders go on meanwhile. Writing to a server that has gone raises no SIGPIPE.

// Called after each read: `count` bytes lie at `data`, valid during the call. 0: the server closed
// the connection, -1: it failed; the client is then disconnected already.
using msgcmd_read_callback = void (*)(int count, const void *data, void *arg);

// Called after each write of up to 1024 bytes, with the bytes written; below 1 the connection
// failed, and the client is disconnected already.
using msgcmd_write_callback = void (*)(int count, void *arg);

enum {
    MSGCMD_CHUNK_SIZE = 1024, // most bytes of one read or write, and so of one loop cycle
};

struct seqpool;

// All fields belong to the client.
struct msgcmd {
    char *path;
    seqpool *pool; // bytes not yet written
    std::uint32_t pool_size;
    std::int32_t fd;    // -1: not connected
    event *read_event;  // of the connection, like the next
    event *write_event; // enabled while `pool` holds bytes
    msgcmd_read_callback read_cb;
    msgcmd_write_callback write_cb;
    void *cb_arg;
};

static_assert(std::is_standard_layout_v<msgcmd> && std::is_trivially_copyable_v<msgcmd>);
static_assert(sizeof(void *) != 4 || sizeof(msgcmd) == 36);

// Connects to the socket at `path` (at most 107 bytes), sends the `length` bytes in one write,
// which waits until the server has taken them, and closes without reading an answer. Returns 0 when
// any of them were written (with a line on standard output when not all were), and for length 0,
// which connects to nothing. -1 when nobody listens, or, after a line on standard output, when
// nothing could be written. Any thread.
int msgcmd_block_write(const char *path, const void *data, unsigned length);

// Makes a client of the server at `path` (at most 107 bytes, copied) and stores it in *out;
// msgcmd_release() ends it. It connects when it first sends. `size` is the queue's, in bytes: it is
// rounded down to whole 4096-byte pages, at most 4096 of them, and holds one byte less; below one
// page it holds nothing. Prints the queue's measures on standard output. Returns 0, or -1 with *out
// null, after a line on standard output, when memory is short or `size` too large.
int msgcmd_init(msgcmd **out, const char *path, unsigned size);

// Sets both callbacks, either of which may be null, and their argument, which is not owned. A null
// client is ignored.
void msgcmd_setcb(msgcmd *client, msgcmd_read_callback read_cb, msgcmd_write_callback write_cb,
                  void *cb_arg);

// Connects unless connected, and queues all of the `length` bytes, copied from `data`. Returns 0,
// also for length 0, which does nothing; -1, with nothing queued, for a null client, when nobody
// listens, when memory is short, when the new descriptor is 1024 or more, or, after a line on
// standard output, when they do not fit into the queue.
//
// Queued is not delivered. Bytes are lost when the connection ends first, and the remainder of a
// chunk when the socket takes only part of it; each is reported by a line on standard output.
int msgcmd_noblock_write(msgcmd *client, const void *data, unsigned length);

// Closes the connection and drops what is queued, without a callback; the next send connects again.
// Null is ignored. Loop thread, callbacks included, or while no loop runs.
void msgcmd_close(msgcmd *client);

// The event callbacks of a connection; `arg` is the msgcmd. They return 0 and call the client's
// own callbacks last. Loop thread.
std::int32_t msgcmd_on_write(event_info *info, void *arg);
std::int32_t msgcmd_on_read(event_info *info, void *arg);

// msgcmd_close(), then frees the client and sets *client to null; null is accepted at either level.
// Loop thread, callbacks included, or while no loop runs; no other thread may use the client any
// more.
void msgcmd_release(msgcmd **client);
