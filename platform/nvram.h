#pragma once

#include <cstddef>

// The camera's key/value configuration store.

extern "C" {

// Writes the value of `key` into `buffer` (`size` bytes) as zero-terminated text, cut to fit. `key`
// is a printf format filled by the arguments after it. When the key holds no value the buffer
// receives `default_text` instead, which may be null. Returns 0 when there was neither value nor
// default (the buffer is then left alone), else non-zero. Any thread.
int nvram_get_with_buffer(char *buffer, std::size_t size, const char *default_text, const char *key,
                          ...) __attribute__((format(printf, 4, 5)));
}
