#pragma once

#include "event/loop.h"

#include <cstdint>
#include <type_traits>

// Control-message server: a table of named commands that other processes call through a FIFO, or
// through a Unix-domain stream socket. Served by the event loop.
//
// What arrives is a stream of items, each of at most 4095 bytes:
//   text line  the command's name, compared without regard to case, then optionally "::" and
//              arguments, then a newline. A zero byte in a line keeps it from ever being complete.
//   frame      '$', a byte of any value, a little-endian 16-bit length, and as many bytes of body.
// Incomplete items wait for more. When the buffer is full without a complete one, the descriptor is
// closed, like after a read error: in FIFO mode this ends the control channel. Nothing to read is
// no error: another reader of the FIFO may have been first.
//
// Socket mode: a connection is answered "OK\n" and closed after its first item; further items that
// arrived in the same read are handled, without a reply. The buffer is the server's: what one
// connection leaves incomplete is completed by the next.
//
// Everything belongs to the loop thread: register and start before the loop runs, or on it.

// `data` is `length` bytes, valid during the call: a whole line without its newline, arguments
// included, zero-terminated; or a whole frame with its header. The result is ignored. It runs on
// the loop thread and must not block it, nor release the server.
using msg_callback = int (*)(void *arg, const char *data, int length);

enum : std::int32_t {
    MSG_FIFO = 0,
    MSG_SOCKET = 1,
};

enum {
    MSG_PATH_SIZE = 128, // the terminating zero included, like the next
    MSG_NAME_SIZE = 128,
    MSG_MAX_COMMANDS = 128,
    MSG_BUFFER_SIZE = 4096, // one byte is kept for a terminating zero
    MSG_UNKNOWN_SIZE = 64,  // the terminating zero included
};

struct msg_conf {
    char path[MSG_PATH_SIZE]; // of the FIFO or the socket; a socket's has at most 107 bytes
    std::int32_t mode;        // MSG_SOCKET; anything else is MSG_FIFO
};

struct msg_command {
    char name[MSG_NAME_SIZE]; // empty for the catch-all
    msg_callback callback;
    void *arg;
    int handled; // called already for what the current read brought
};

struct msg_extend {
    msg_callback callback;
    void *arg;
};

// The lines that named no command.
struct msg_unknown {
    std::uint32_t count;
    // How the last one began; a byte that is no printable ASCII stands as '?'.
    char last[MSG_UNKNOWN_SIZE];
};

// Read-only for users.
struct msg_handle {
    char path[MSG_PATH_SIZE];
    std::int32_t mode;
    std::int32_t count;                      // of commands
    msg_command *commands[MSG_MAX_COMMANDS]; // in the order of registration
    msg_extend *extend;
    msg_command *others;
    char buffer[MSG_BUFFER_SIZE];
    std::int32_t used; // bytes held in `buffer`
};

static_assert(std::is_standard_layout_v<msg_handle> && std::is_trivially_copyable_v<msg_handle>);

// The functions below return 0, or -1 with nothing changed: when memory is short, the handle or the
// slot is null, or for the reason given. Callbacks and names are not null; `arg` is not owned.

// Stores a new server in *slot.
int msg_init(msg_handle **slot, msg_conf conf);

// Calls `callback` for every line that names the command, but only once for all the lines that one
// read brought. Several commands may bear the same name, and are called in the order registered. -1
// also for the 129th command, and for a name of more than 127 characters.
int msg_register(msg_handle *handle, const char *name, msg_callback callback, void *arg);

// Calls `callback` for every frame; frames are skipped without it. -1 also for a second one.
int msg_registerExtend(msg_handle *handle, msg_callback callback, void *arg);

// Calls `callback` for every line that names no command. -1 also for a second one.
int msg_registerOthers(msg_handle *handle, msg_callback callback, void *arg);

// Copies what is known of the lines that named no command, whether or not a callback was registered
// for them. Loop thread. -1 also when `unknown` is null.
int msg_get_unknown(const msg_handle *handle, msg_unknown *unknown);

// Opens the FIFO, made if missing, or listens on the socket, and adds it to the event loop. Once a
// server. -1 also when it cannot be set up; a file in the FIFO's place is left as it is.
int msg_start(msg_handle *handle);

// The event callbacks that msg_start() registers; `arg` is the msg_handle, the descriptor that of
// the event. They return 0. msg_read() reads once, handles the complete items, and closes the
// descriptor and removes the event at end of file, on an error, or once it has answered in socket
// mode. socket_accept() takes one connection in. One that cannot be accepted, for want of
// descriptors as a rule, stays pending, and the listener of msg_start() pauses for 100 ms.
std::int32_t msg_read(event_info *info, void *arg);
std::int32_t socket_accept(event_info *info, void *arg);

// Closes every descriptor of the server, removes their events, frees it all and sets *slot to null;
// an empty slot is left alone. Call it after the loop has ended, or on the loop thread outside this
// server's callbacks. The FIFO or socket stays in the file system.
int msg_release(msg_handle **slot);
