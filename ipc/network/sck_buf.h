#pragma once

#include <cstdint>
#include <span>
#include <type_traits>

// A ring of bytes that holds frames: a payload's length, 4 bytes in host byte order, and the
// payload. It has no lock: whoever shares one guards it.

// count = (writePos - readPos) mod size, at most size - 1; both positions are 0 when it is empty.
// The array costs memory where bytes have been put.
struct sck_buf_t {
    std::uint8_t *data; // `size` bytes
    std::uint32_t size;
    std::uint32_t count;    // bytes queued
    std::uint32_t readPos;  // next byte out, 0..size-1
    std::uint32_t writePos; // where the next byte goes in, 0..size-1
};

static_assert(std::is_standard_layout_v<sck_buf_t> && std::is_trivially_copyable_v<sck_buf_t>);
static_assert(sizeof(void *) != 4 || sizeof(sck_buf_t) == 20);

// Gives `buffer` an empty array of `size` zeros; sck_buf_release() ends it. Returns 0, or -1, the
// buffer as it was, when memory is short or there cannot be so much.
int sck_buf_init(sck_buf_t *buffer, std::uint32_t size);

// Frees the array, if there is one.
void sck_buf_release(sck_buf_t *buffer);

using sck_bytes = std::span<const std::uint8_t>;

// Whether a frame with `length` bytes of payload fits in whole.
bool sck_buf_has_room(const sck_buf_t &ring, std::uint32_t length);

// Puts a frame in, which must fit.
void sck_buf_put_frame(sck_buf_t &ring, sck_bytes payload);

// The oldest bytes, up to the array's end: all there are, unless they wrap.
sck_bytes sck_buf_first_run(const sck_buf_t &ring);

// Takes the oldest `count` bytes out, which must be there.
void sck_buf_take_out(sck_buf_t &ring, std::uint32_t count);

// The position `count` bytes, at most `size`, behind `position`.
std::uint32_t sck_buf_advance(const sck_buf_t &ring, std::uint32_t position, std::uint32_t count);
