#pragma once

#include "util/guarded.h"

#include <cstdint>
#include <type_traits>

#include <pthread.h>

// A byte ring buffer in pages of 4096 bytes: a FIFO of bytes that needs no large contiguous memory.
//
// Any thread may call these on a pool, except that no other call may overlap or follow
// seqpool_destroy(); each call is one step under the pool's mutex and waits for nothing else.
// Transfers are all or nothing. A pool of n bytes holds n - 1; sizes are rounded down to whole
// pages, and a pool without pages is both empty and full.

inline constexpr int seqpool_page_size = 4096;
inline constexpr int seqpool_max_pages = 4096; // 16 MiB

// All fields belong to the pool; read them only where no other thread uses it. Offset o lies in
// page o / pageSize at o % pageSize.
struct seqpool {
    std::int32_t totalSize VA_GUARDED_BY(mutex); // bytes: pageNum * pageSize
    std::int32_t pageSize VA_GUARDED_BY(mutex);  // seqpool_page_size
    std::int32_t pageNum VA_GUARDED_BY(mutex);   // 0..seqpool_max_pages
    std::int32_t readPos VA_GUARDED_BY(mutex);   // of the oldest byte; equal to writePos when empty
    std::int32_t writePos VA_GUARDED_BY(mutex);  // offset of the next byte to be written
    std::uint8_t *pages[seqpool_max_pages] VA_GUARDED_BY(mutex); // null from pageNum on
    pthread_mutex_t mutex;
};

static_assert(std::is_standard_layout_v<seqpool> && std::is_trivially_copyable_v<seqpool>);

// Makes an empty pool of `size` bytes, prints its measures on standard output and stores it in
// *out; seqpool_destroy() ends it. Returns 0, or -1 after a line on standard output, *out
// untouched, when memory is short or `size` exceeds the greatest number of pages.
int seqpool_init(seqpool **out, unsigned size);

// Gives the pool another size and drops what it holds. Returns 0 (also for null), or -1 after a
// line on standard output: beyond the greatest number of pages nothing has changed; when memory is
// short the pool is empty and has the pages that could be had.
int seqpool_setSize(seqpool *pool, unsigned size);

// Queues `length` bytes, copied from `source`. Returns 0, or -1, with nothing queued, when it
// does not fit or the pool is null.
int seqpool_writeData(seqpool *pool, const void *source, unsigned length);

// Takes the oldest `length` bytes out, into `destination` or, with null, away. Returns 0, or -1,
// with nothing taken, when fewer are stored or the pool is null.
int seqpool_readData(seqpool *pool, void *destination, unsigned length);

// Bytes free, and bytes stored; 0 for null. With one writer the bytes free only grow between
// this call and its write, with one reader the bytes stored between this call and its read.
int seqpool_askAvailSize(seqpool *pool);
int seqpool_askDataSize(seqpool *pool);

// Drops what the pool holds. Returns 0, or -1 for null.
int seqpool_clearData(seqpool *pool);

// Frees the pool and sets *pool to null; null is accepted at either level. Returns 0.
int seqpool_destroy(seqpool **pool);
