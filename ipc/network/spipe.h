#pragma once

#include <cstdint>
#include <type_traits>

// Socket pipe: a polled message channel over a Unix-domain stream socket, without an event loop. A
// server with a fixed number of client slots writes to all of its clients and reads from one at a
// time; it never waits. A client connects, and connects again, whenever it is used.
//
// The socket carries bytes, not messages: a read returns what has arrived, which may be part of one
// written buffer or several of them. Give the messages a length or an end of their own.
//
// No locks: a server or a client is used by one thread at a time. Writing to a peer that has gone
// raises no SIGPIPE. Failures are reported by a line on standard output or standard error.

enum {
    SPIPE_PATH_SIZE = 128,    // the terminating zero included
    SPIPE_MAX_CLIENTS = 1024, // no descriptor above can be waited on
};

// Results of spipe_s_read().
enum {
    SPIPE_NOTHING = 0,
    SPIPE_READ = 1,
    SPIPE_READ_MORE = 2, // read one buffer, and another client is ready too
};

// A path has at most 107 bytes, as a socket address does. A longer one, or one without a
// terminating zero, is never cut to another socket's: the server's init fails, a client does not
// connect.
struct spipe_server_conf {
    char path[SPIPE_PATH_SIZE]; // of the socket; a file there is removed
    std::int32_t max_clients;   // 1..SPIPE_MAX_CLIENTS, else the init fails
};

struct spipe_client_conf {
    char path[SPIPE_PATH_SIZE]; // of the server's socket
};

// Read-only for users, like spipe_client.
struct spipe_server {
    char path[SPIPE_PATH_SIZE];
    std::int32_t listen_fd;    // 0: none
    std::int32_t *clients;     // max_clients descriptors; 0 marks an empty slot
    std::int32_t client_count; // occupied slots
    std::int32_t max_clients;  // also the listen backlog
};

struct spipe_client {
    char path[SPIPE_PATH_SIZE];
    std::int32_t fd; // 0: not connected
};

static_assert(std::is_standard_layout_v<spipe_server> &&
              std::is_trivially_copyable_v<spipe_server>);
static_assert(std::is_standard_layout_v<spipe_client> &&
              std::is_trivially_copyable_v<spipe_client>);
static_assert(sizeof(void *) != 4 || sizeof(spipe_server) == 144);
static_assert(sizeof(spipe_client) == 132);

// Starts a server and stores it in *out; spipe_s_destroy() ends it. Prints the path on standard
// output. Returns 0, or -1 with *out null: memory is short, max_clients or the path is refused, or
// the socket cannot be set up.
int spipe_s_init(spipe_server **out, spipe_server_conf conf);

// Takes in the connections that wait, as far as slots are free; writing and reading do it
// themselves. The other connections stay in the listen backlog, of about max_clients; while that is
// full, further clients wait in their connect. Returns 0, or -1 when the server is null or a
// connection cannot be accepted (it also fails, and is closed, when its descriptor is 1024 or
// more).
int spipe_s_acceptClients(spipe_server *server);

// Takes in clients, then writes the `length` bytes (at least 1) to every client, in one write each.
// A client whose socket is full misses the buffer; one whose socket takes only part of it misses
// the remainder, which is reported; one that has gone is removed. Returns 0 whoever received it, or
// -1, with nothing written, for a null server, a length below 1, or when taking in clients failed.
int spipe_s_write(spipe_server *server, const void *buffer, int length);

// Takes in clients, then reads once, up to *length bytes (at least 1), from the ready client in the
// lowest slot. Returns SPIPE_READ or SPIPE_READ_MORE with the bytes read in *length and the slot in
// *index; SPIPE_NOTHING when no client has sent anything; or -1 for a null server, a length below
// 1, or when taking in clients or the readiness test failed. *length and *index change only when
// bytes were read. A client that has gone is removed; its slot goes to another one. Slots are
// served first in order, so a client that always has data ready keeps higher slots waiting.
int spipe_s_read(spipe_server *server, void *buffer, int *length, int *index);

// Occupied slots; 0 for null. Clients that left count until a write or read notices.
int spipe_s_getClientNumbers(const spipe_server *server);

// Closes every connection and the listener, frees the server and sets *server to null; null is
// accepted at either level. The socket file stays. Returns 0.
int spipe_s_destroy(spipe_server **server);

// Makes a client, tries to connect it like spipe_c_isConnect(), and stores it in *out;
// spipe_c_destroy() ends it. Returns 0, also when nobody listens yet, or -1 with *out null when
// memory is short.
int spipe_c_init(spipe_client **out, spipe_client_conf conf);

// Connects unless connected, which waits while the server's backlog is full. Returns 1 when
// connected; 0 when not, or for null. A connection that the server has closed counts as connected
// until a read notices.
int spipe_c_isConnect(spipe_client *client);

// Connects unless connected, then waits up to seconds + microseconds (which may be a million or
// more) for data and reads once, up to `length` bytes (at least 1). Returns the bytes read; 0 when
// nothing arrived in time; or -1 for a null client, a length below 1, no server, or a connection
// that the server closed or that failed (a signal handled during the wait counts). After -1 the
// next call connects again.
int spipe_c_read(spipe_client *client, void *buffer, int length, int seconds, int microseconds);

// The client's descriptor, to wait on together with others or to write to (with send() and
// MSG_NOSIGNAL); it stays the client's. 0 when not connected, or for null.
int spipe_c_getFd(const spipe_client *client);

// Closes the connection; the next use connects again. Returns 0, or -1 for null.
int spipe_c_disconnect(spipe_client *client);

// Closes the connection, frees the client and sets *client to null; null is accepted at either
// level. Returns 0.
int spipe_c_destroy(spipe_client **client);
