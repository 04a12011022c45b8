#pragma once

#include <cstdint>

// Whole-file writes, named pipes, directories, and little-endian fields. Stateless; any thread.

// Creates or truncates `path` and opens it read-write, non-blocking and close-on-exec. Returns the
// descriptor, which the caller closes, or -1 after a line on standard output. A FIFO opens at once,
// without a peer, and its reader never sees end of file.
int file_open(const char *path);

// Replace the content of `path`. Return 0 when every byte was written, else -1 (the file is then
// truncated and holds what was written).
int file_write(const char *path, const void *data, unsigned length);
int file_write_str(const char *path, const char *text);

// At most 4095 characters; longer text is cut.
int file_printf(const char *path, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Makes the FIFO unless something is at `path` already. Returns 0, or -1 after a message on
// standard error.
int pipe_create(const char *path);

// pipe_create(), then file_open().
int pipe_open(const char *path);

// Write into the FIFO, made if missing, without waiting for a reader: 0 when all of it fitted into
// the pipe, else -1. pipe_printf() cuts like file_printf().
int pipe_write(const char *path, const void *data, unsigned length);
int pipe_write_str(const char *path, const char *text);
int pipe_printf(const char *path, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Makes every missing directory of `path`, the last component included, mode 0777 less the umask.
// `path` may have any length (past the 4095 characters of a system path nothing is made). Always
// returns 0: a directory that could not be made shows when it is used.
int dir_create(const char *path);

// Little-endian, whatever the host.
std::uint32_t buf2long(const void *bytes);
int buf2short(const void *bytes); // 0..65535
void long2str(void *bytes, std::uint32_t value);
void short2str(void *bytes, int value); // the low 16 bits

// Change `text` in place, by the current locale.
void strtolower(char *text);
void strtoupper(char *text);
