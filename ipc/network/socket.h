#pragma once

// Stream sockets, readiness tests, exact reads. Stateless; any thread.
//
// Descriptors returned are blocking, close-on-exec and the caller's to close. An out-parameter is
// written on success only. -1 follows a message on standard error, unless said otherwise.

// Unix-domain sockets. A path of more than 107 bytes gives -1 without a message, and nothing is
// touched.

// Removes whatever file is at `path`, then listens there. Descriptors that clients send along are
// refused, where the kernel can. Returns 0, or -1.
int unix_domain_socket_init(int *out, const char *path, int backlog);

// Does not wait: 1 and the connection, 0 when none is pending, -1 with errno as accept left it.
int unix_domain_socket_accept(int listener, int *out);

// Returns 0, or -1: without a message when nobody listens at `path`.
int unix_domain_socket_connect(int *out, const char *path);

// TCP over IPv4. Of `port` the low 16 bits count; 0 lets the system choose one.

// Listens on every local address, without address reuse. Returns the listener, or -1.
int server_socket_init(int port, int backlog);

// Does not wait for a connection: returns it, 0 when none is pending, or -1.
int server_socket_accept(int listener);

// `address` is a dotted quad. Returns the connection, or -1.
int client_socket_connect(const char *address, int port);

// Readiness of a descriptor in 0..1023: 1 when ready (end of file counts as readable), 0 when not,
// -1 on error. The first two do not wait; the others wait up to seconds + microseconds, which may
// be a million or more.
int can_read(int fd);
int can_write(int fd);
int can_read_with_timeout(int fd, int seconds, int microseconds);
int can_write_with_timeout2(int fd, int seconds, int microseconds);

// Reads exactly `length` bytes, waiting as the descriptor's blocking mode says. Returns `length`,
// or after a line on standard output 0 at end of file or -1 on error, a signal among them; what was
// read before is then lost to the caller's count.
int full_read(int fd, void *buffer, int length);

// Reads up to `length` bytes, waiting up to `timeout` ms for each piece. Returns the bytes read:
// fewer than `length` when nothing arrived in time, or at end of file. -1 on error, after a line on
// standard output. With `timeout` 0 there is no limit, and the blocking mode decides.
int full_read_with_timeout(int fd, void *buffer, int length, int timeout);
