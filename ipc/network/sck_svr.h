#pragma once

#include "event/loop.h"
#include "ipc/network/sck_buf.h"
#include "util/guarded.h"

#include <cstdint>
#include <type_traits>
#include <vector>

#include <pthread.h>

// Result broadcast server: one stream of records for any number of local clients.
//
// A client connects to the server's Unix-domain stream socket and reads frames, back to back: a
// 4-byte payload length in host byte order, never 0, then the payload. The first one is the first
// record queued after it was accepted.
//
// Every client has a send buffer of its own. A record that does not fit in it whole is dropped for
// this client alone, and leaves no trace in its stream; a client that never reads just misses
// records, and delays neither the producer nor the others. A client is removed when it closes, or
// when a write to it fails. Writing to one that has gone raises no SIGPIPE.
//
// Of each kind of line on standard output at most 20 are printed a second: a record that a client
// has no space for, a connection, its end, a failed write. Further ones are counted, and their
// number is printed once a second.
//
// The event loop accepts and serves the clients on its thread; sck_svr_write() only fills their
// buffers. Queuing does not wake the loop: keep a periodic timer running to bound the delay, and to
// have none add to a soft queue of one slot on the loop (event/soft_queue.h) after each record;
// that an add is refused means that a wake is under way. A connection that cannot be accepted, for
// want of descriptors as a rule, stays pending; the listener pauses for 100 ms before it is tried
// again.

struct sck_clt_t;
struct sck_svr_t;

// Called on the loop thread, without the lock, after every read from a client; the result is
// ignored. It must not block, nor release the server.
//
// The array client->recv.data holds `count` bytes that an earlier call kept, from offset 0, and
// behind them the new ones, up to `writePos`, or up to the array's end when `writePos` is 0. The
// handler owns the buffer's fields during the call. Before it returns it moves what it keeps to the
// start of the array and sets readPos to 0, count and writePos to the length kept, which must be
// below `size`: a record that can outgrow the buffer has to be given up. (While writePos is below
// readPos nothing is read, and the handler is called over and over.)
using sck_recv_handler = int (*)(sck_clt_t *client, void *arg);

// One connected client, owned by its server's list. The lock guards next, prev and send; all else
// belongs to the loop thread.
struct sck_clt_t {
    sck_clt_t *next; // older
    sck_clt_t *prev; // newer
    std::int32_t socket;
    sck_buf_t send;    // frames not written yet
    sck_buf_t recv;    // see sck_recv_handler
    event *writeEvent; // enabled while `send` holds bytes
    event *readEvent;
    sck_svr_t *server;
};

struct sck_svr_t {
    std::int32_t socket;                    // listening
    std::uint32_t size;                     // of each buffer of each client
    sck_clt_t *clients VA_GUARDED_BY(lock); // newest first
    event *acceptEvent;
    char *path;
    sck_recv_handler recvHandler;
    void *recvArg;
    pthread_mutex_t lock; // clients, their send buffers and write events
};

static_assert(std::is_standard_layout_v<sck_clt_t> && std::is_trivially_copyable_v<sck_clt_t>);
static_assert(std::is_standard_layout_v<sck_svr_t> && std::is_trivially_copyable_v<sck_svr_t>);

// What has been counted. A client's refused records are not among its others.
struct sck_counts_t {
    std::uint64_t records; // of a server: given to sck_svr_write(); of a client: queued for it
    std::uint64_t bytes;   // their payloads'
    std::uint64_t refused; // records for which a client had no space; of a server: of all clients
};

struct sck_clt_status_t {
    std::int32_t pid;     // the process that connected; 0 when the system does not know
    std::uint32_t queued; // bytes that wait for its socket, lengths included
    sck_counts_t counts;
};

struct sck_svr_status_t {
    sck_counts_t counts;                   // since the start; those of clients that left stay
    std::uint32_t longest_us;              // from sck_svr_write() to a client's socket, see below
    std::uint64_t failed_accepts;          // connections that had to be tried again
    bool listens;                          // else no client can connect
    std::vector<sck_clt_status_t> clients; // newest first
};

static_assert(sizeof(void *) != 4 || sizeof(sck_clt_t) == 64);

// Starts a server at `path` (at most 107 bytes, copied; a file there is removed) and stores it in
// *slot. `size` is the capacity of each client's buffers, above 4; the largest payload that can be
// delivered is size - 5 bytes. Returns 0, or -1 with *slot untouched: path null, size too small,
// memory short, or no socket or event to be had.
int sck_svr_init(sck_svr_t **slot, const char *path, std::uint32_t size);

// Queues one record for every client with space for all of it, and reports each client without.
// The data stays the caller's. Copies only: no socket call, no allocation. Any thread. Returns 0
// whoever received it (and for length 0, which queues nothing), -1 when `server` is null.
int sck_svr_write(sck_svr_t *server, const void *data, std::uint32_t length);

// Number of connected clients, -1 when `server` is null. Any thread.
int sck_svr_get_client_count(sck_svr_t *server);

// Reports the state of the server; any thread. Of the records that have gone to a socket within the
// last minute, `longest_us` is the longest time from sck_svr_write() until the last byte is in the
// socket, in microseconds. Where a client's buffer did not run empty in between, records are timed
// together, from the first one's write to the last one's end. Returns 0, or -1 with *status
// untouched when an argument is null or memory is short.
int sck_svr_get_status(sck_svr_t *server, sck_svr_status_t *status);

// Loop thread, or before the loop runs. Replaces the handler and its argument, which is not owned.
// Returns 0, or -1 when `server` is null.
int sck_svr_set_recv_callback(sck_svr_t *server, sck_recv_handler handler, void *arg);

// Closes the listener and every client, drops what is queued and sets *slot to null; an empty slot
// is left alone. The socket file stays. Loop thread, or while the loop does not run, and no other
// thread may use the server any more.
void sck_svr_release(sck_svr_t **slot);

// The default receive handler: throws away what was read. Returns 0.
int sck_clt_ignore_read(sck_clt_t *client, void *arg);
