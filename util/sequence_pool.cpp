#include "util/sequence_pool.h"

#include "util/fd.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <span>
#include <utility>

namespace
{

constexpr unsigned page_size = seqpool_page_size;
constexpr unsigned max_pages = seqpool_max_pages;

void set_page_count(seqpool &pool, unsigned count) VA_REQUIRES(pool.mutex)
{
    pool.pageNum = static_cast<std::int32_t>(count);
    pool.totalSize = static_cast<std::int32_t>(count * page_size);
}

int stored(const seqpool &pool) VA_REQUIRES(pool.mutex)
{
    const int ahead = pool.writePos - pool.readPos;
    return ahead < 0 ? ahead + pool.totalSize : ahead;
}

// One byte stays free, so that full and empty differ.
int room(const seqpool &pool) VA_REQUIRES(pool.mutex)
{
    return pool.totalSize == 0 ? 0 : pool.totalSize - 1 - stored(pool);
}

// Makes the pool own the first `count` pages and no others. Returns how many of them it got.
unsigned fit_pages(seqpool &pool, unsigned count) VA_REQUIRES(pool.mutex)
{
    for (unsigned i = count; i < max_pages; ++i)
        delete[] std::exchange(pool.pages[i], nullptr);
    for (unsigned i = 0; i < count; ++i) {
        if (!pool.pages[i])
            pool.pages[i] = new (std::nothrow) std::uint8_t[page_size];
        if (!pool.pages[i])
            return i;
    }
    return count;
}

void end_pool(seqpool *pool)
{
    va::assume_locked(pool->mutex);
    fit_pages(*pool, 0);
    pthread_mutex_destroy(&pool->mutex);
    delete pool;
}

// Hands the `length` bytes from `position` on to `take`, page by page. Returns the offset after
// them.
//
// Copies are std::copy_n(): of a memcpy() whose length a page bounds, compilers make a string
// instruction, which takes longer to start than a record to copy.
template <class Take>
std::int32_t for_each_chunk(seqpool &pool, std::int32_t position, unsigned length, Take take)
    VA_REQUIRES(pool.mutex)
{
    auto offset = static_cast<unsigned>(position);
    while (length > 0) {
        const unsigned in_page = offset % page_size;
        const unsigned size = std::min(page_size - in_page, length);
        take(std::span(pool.pages[offset / page_size] + in_page, size));
        length -= size;
        offset += size;
        if (offset == static_cast<unsigned>(pool.totalSize))
            offset = 0;
    }
    return static_cast<std::int32_t>(offset);
}

} // namespace

int seqpool_init(seqpool **out, unsigned size)
{
    va::Owner<seqpool, end_pool> pool(new (std::nothrow) seqpool{});
    if (!pool) {
        std::puts("Can't allocate memory.");
        return -1;
    }
    pthread_mutex_init(&pool->mutex, nullptr);
    va::assume_locked(pool->mutex);
    const unsigned count = size / page_size;
    pool->pageSize = page_size;
    set_page_count(*pool, count);
    std::printf("totalSize = %d\n", pool->totalSize);
    std::printf("pageSize = %d\n", pool->pageSize);
    std::printf("pageNum = %d\n", pool->pageNum);
    if (count > max_pages) {
        std::puts("Exceed max seqpool block number.");
        return -1;
    }
    if (fit_pages(*pool, count) < count) {
        std::puts("Can't allocate memory.");
        return -1;
    }
    *out = pool.release();
    return 0;
}

int seqpool_setSize(seqpool *pool, unsigned size)
{
    if (!pool)
        return 0;
    const unsigned count = size / page_size;
    if (count > max_pages) {
        std::puts("Exceed max seqpool block number.");
        return -1;
    }
    const va::ScopedLock lock(pool->mutex);
    pool->readPos = pool->writePos = 0;
    const unsigned held = fit_pages(*pool, count);
    set_page_count(*pool, held);
    if (held < count) {
        std::printf("%s: can't allocate memory.\n", "seqpool_setSize");
        return -1;
    }
    return 0;
}

int seqpool_writeData(seqpool *pool, const void *source, unsigned length)
{
    if (!pool)
        return -1;
    const va::ScopedLock lock(pool->mutex);
    if (static_cast<unsigned>(room(*pool)) < length)
        return -1;
    const auto *from = static_cast<const std::uint8_t *>(source);
    pool->writePos =
        for_each_chunk(*pool, pool->writePos, length, [&](std::span<std::uint8_t> chunk) {
            std::copy_n(from, chunk.size(), chunk.data());
            from += chunk.size();
        });
    return 0;
}

int seqpool_readData(seqpool *pool, void *destination, unsigned length)
{
    if (!pool)
        return -1;
    const va::ScopedLock lock(pool->mutex);
    if (static_cast<unsigned>(stored(*pool)) < length)
        return -1;
    auto *to = static_cast<std::uint8_t *>(destination);
    pool->readPos =
        for_each_chunk(*pool, pool->readPos, length, [&](std::span<std::uint8_t> chunk) {
            if (!to)
                return;
            std::copy_n(chunk.data(), chunk.size(), to);
            to += chunk.size();
        });
    return 0;
}

int seqpool_askAvailSize(seqpool *pool)
{
    if (!pool)
        return 0;
    const va::ScopedLock lock(pool->mutex);
    return room(*pool);
}

int seqpool_askDataSize(seqpool *pool)
{
    if (!pool)
        return 0;
    const va::ScopedLock lock(pool->mutex);
    return stored(*pool);
}

int seqpool_clearData(seqpool *pool)
{
    if (!pool)
        return -1;
    const va::ScopedLock lock(pool->mutex);
    pool->readPos = pool->writePos = 0;
    return 0;
}

int seqpool_destroy(seqpool **pool)
{
    if (pool && *pool)
        end_pool(std::exchange(*pool, nullptr));
    return 0;
}
