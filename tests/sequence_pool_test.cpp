#include "tests/support/capture.h"
#include "tests/support/event_failing_new.h"
#include "util/sequence_pool.h"

#include <algorithm>
#include <deque>
#include <iterator>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace
{

constexpr unsigned page = 4096;

using Bytes = std::vector<std::uint8_t>;

Bytes numbered(std::size_t size, std::uint8_t first)
{
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

struct Pool {
    explicit Pool(unsigned size) { seqpool_init(&pool, size); }
    ~Pool() { seqpool_destroy(&pool); }
    Pool(const Pool &) = delete;
    Pool &operator=(const Pool &) = delete;

    int write(const Bytes &bytes)
    {
        return seqpool_writeData(pool, bytes.data(), static_cast<unsigned>(bytes.size()));
    }
    // What a read of `size` bytes brings; nothing when it fails.
    Bytes read(std::size_t size)
    {
        Bytes bytes(size);
        if (seqpool_readData(pool, bytes.data(), static_cast<unsigned>(size)) == -1)
            bytes.clear();
        return bytes;
    }
    bool holds(std::size_t stored, std::size_t capacity) const
    {
        return seqpool_askDataSize(pool) == static_cast<int>(stored) &&
               seqpool_askAvailSize(pool) == static_cast<int>(capacity - stored);
    }

    seqpool *pool = nullptr;
};

TEST(SequencePool, IsMadeOfWholePages)
{
    for (const auto &[size, pages, made] :
         {std::tuple(page - 1, 0, true), std::tuple(10000u, 2, true),
          std::tuple(4096 * page, 4096, true), std::tuple(4097 * page, 4097, false),
          std::tuple(0xFFFFFFFF, 1048575, false)}) {
        seqpool *pool = nullptr;
        const int total = static_cast<int>(static_cast<unsigned>(pages) * page);
        EXPECT_EQ(stdout_of([&, size = size, made = made] {
                      EXPECT_EQ(seqpool_init(&pool, size), made ? 0 : -1);
                  }),
                  "totalSize = " + std::to_string(total) +
                      "\npageSize = 4096\npageNum = " + std::to_string(pages) + "\n" +
                      (made ? "" : "Exceed max seqpool block number.\n"));
        EXPECT_EQ(seqpool_askAvailSize(pool), made && pages > 0 ? total - 1 : 0);
        EXPECT_EQ(seqpool_writeData(pool, "x", 1), made && pages > 0 ? 0 : -1);
        EXPECT_EQ(seqpool_readData(pool, nullptr, 1), made && pages > 0 ? 0 : -1);
        EXPECT_EQ(seqpool_destroy(&pool), 0);
        EXPECT_EQ(pool, nullptr);
    }
}

// Transfers that just fit and just do not, wraps, and resizes of empty, full and wrapped pools.
TEST(SequencePool, BehavesLikeADeque)
{
    Pool pool(3 * page);
    std::deque<std::uint8_t> model;
    std::size_t capacity = 3 * page - 1;
    std::mt19937 random(20240501); // any seed will do; a fixed one repeats
    for (int step = 0; step < 4000; ++step) {
        const auto below = [&](std::size_t limit) { return random() % limit; };
        const std::size_t room = capacity - model.size();
        const std::size_t limits[] = {room, room + 1, model.size(), model.size() + 1, below(6000)};
        const std::size_t size = limits[below(std::size(limits))];
        const Bytes bytes = numbered(size, static_cast<std::uint8_t>(step));
        const auto action = below(100);
        if (action < 2) {
            EXPECT_EQ(seqpool_setSize(pool.pool, 4097 * page), -1); // changes nothing
        } else if (action < 4) {
            const auto pages = static_cast<unsigned>(1 + below(5));
            EXPECT_EQ(seqpool_setSize(pool.pool, pages * page + 17), 0);
            capacity = pages * page - 1;
            model.clear();
        } else if (action < 6) {
            EXPECT_EQ(seqpool_clearData(pool.pool), 0);
            model.clear();
        } else if (action < 60) {
            ASSERT_EQ(pool.write(bytes), size <= room ? 0 : -1);
            if (size <= room)
                model.insert(model.end(), bytes.begin(), bytes.end());
        } else if (size > model.size()) {
            ASSERT_EQ(pool.read(size), Bytes{});
        } else {
            const auto end = model.begin() + static_cast<std::ptrdiff_t>(size);
            if (action < 70)
                ASSERT_EQ(seqpool_readData(pool.pool, nullptr, static_cast<unsigned>(size)), 0);
            else
                ASSERT_EQ(pool.read(size), Bytes(model.begin(), end));
            model.erase(model.begin(), end);
        }
        EXPECT_TRUE(pool.holds(model.size(), capacity));
    }
}

TEST(SequencePool, CarriesAStreamBetweenTwoThreads)
{
    constexpr std::size_t total = 300'000;
    Pool pool(page);
    std::thread writer([&] {
        for (std::size_t sent = 0, size = 0; sent < total; sent += size) {
            size = std::min(total - sent, 1 + sent % 977);
            while (pool.write(numbered(size, static_cast<std::uint8_t>(sent))) != 0)
                std::this_thread::yield();
        }
    });
    for (std::size_t got = 0; got < total;) {
        const auto size = static_cast<std::size_t>(seqpool_askDataSize(pool.pool));
        EXPECT_EQ(pool.read(size), numbered(size, static_cast<std::uint8_t>(got)));
        got += size;
    }
    writer.join();
    EXPECT_TRUE(pool.holds(0, page - 1));
}

TEST(SequencePool, OutOfMemory)
{
    EXPECT_EQ(fail_each_allocation([] {
                  seqpool *pool = nullptr;
                  const int result = seqpool_init(&pool, 2 * page);
                  EXPECT_EQ(pool != nullptr, result == 0);
                  seqpool_destroy(&pool);
                  return result == 0;
              }),
              3);

    // A pool that cannot grow as asked goes on with the pages it has.
    Pool pool(page);
    std::size_t pages = 0;
    EXPECT_EQ(fail_each_allocation([&] {
                  ++pages;
                  seqpool_setSize(pool.pool, page);
                  const int result = seqpool_setSize(pool.pool, 4 * page);
                  EXPECT_TRUE(pool.holds(0, pages * page - 1));
                  EXPECT_EQ(pool.write(numbered(pages * page - 1, 0)), 0);
                  return result == 0;
              }),
              3);
}

} // namespace
