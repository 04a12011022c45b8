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
#include <vector>

#include <gtest/gtest.h>

namespace
{

constexpr unsigned page = 4096;
const char *const too_many_pages = "Exceed max seqpool block number.\n";

using Bytes = std::vector<std::uint8_t>;

Bytes numbered(std::size_t size, std::uint8_t first)
{
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

struct Pool {
    explicit Pool(unsigned size)
    {
        stdout_of([&] { EXPECT_EQ(seqpool_init(&pool, size), 0); });
    }
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
    int set_size(unsigned size, const std::string &printed)
    {
        int result = 0;
        EXPECT_EQ(stdout_of([&] { result = seqpool_setSize(pool, size); }), printed);
        return result;
    }
    void expect_holds(int stored, int capacity)
    {
        EXPECT_EQ(seqpool_askDataSize(pool), stored);
        EXPECT_EQ(seqpool_askAvailSize(pool), capacity - stored);
    }

    seqpool *pool = nullptr;
};

TEST(SequencePool, IsMadeOfWholePages)
{
    struct Case {
        unsigned size;
        int pages;
        bool made;
    };
    for (const Case &c : {Case{0, 0, true}, Case{page - 1, 0, true}, Case{10000, 2, true},
                          Case{4096 * page, 4096, true}, Case{4097 * page, 4097, false},
                          Case{0xFFFFFFFF, 1048575, false}}) {
        seqpool *pool = nullptr;
        int result = 0;
        const int total = static_cast<int>(static_cast<unsigned>(c.pages) * page);
        EXPECT_EQ(stdout_of([&] { result = seqpool_init(&pool, c.size); }),
                  "totalSize = " + std::to_string(total) + "\npageSize = 4096\npageNum = " +
                      std::to_string(c.pages) + "\n" + (c.made ? "" : too_many_pages));
        EXPECT_EQ(result, c.made ? 0 : -1);
        EXPECT_EQ(pool != nullptr, c.made);
        EXPECT_EQ(seqpool_askAvailSize(pool), c.made && c.pages > 0 ? total - 1 : 0);
        EXPECT_EQ(seqpool_destroy(&pool), 0);
        EXPECT_EQ(pool, nullptr);
    }
}

TEST(SequencePool, NullAndPagelessPoolsHoldNothing)
{
    Pool pageless(page - 1);
    for (seqpool *pool : {static_cast<seqpool *>(nullptr), pageless.pool}) {
        const int empty_transfer = pool ? 0 : -1;
        std::uint8_t byte = 0;
        EXPECT_EQ(seqpool_askAvailSize(pool), 0);
        EXPECT_EQ(seqpool_askDataSize(pool), 0);
        EXPECT_EQ(seqpool_writeData(pool, &byte, 1), -1);
        EXPECT_EQ(seqpool_readData(pool, &byte, 1), -1);
        EXPECT_EQ(seqpool_writeData(pool, nullptr, 0), empty_transfer);
        EXPECT_EQ(seqpool_readData(pool, nullptr, 0), empty_transfer);
        EXPECT_EQ(seqpool_clearData(pool), empty_transfer);
    }
    EXPECT_EQ(seqpool_setSize(nullptr, page), 0);
    EXPECT_EQ(seqpool_destroy(nullptr), 0);
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
            EXPECT_EQ(pool.set_size(4097 * page, too_many_pages), -1); // changes nothing
        } else if (action < 4) {
            const auto pages = static_cast<unsigned>(1 + below(5));
            EXPECT_EQ(pool.set_size(pages * page + 17, ""), 0);
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
        pool.expect_holds(static_cast<int>(model.size()), static_cast<int>(capacity));
    }
}

TEST(SequencePool, CarriesAStreamBetweenTwoThreads)
{
    constexpr std::size_t total = 300'000;
    Pool pool(page);
    std::thread writer([&] {
        for (std::size_t sent = 0; sent < total;) {
            const std::size_t size = std::min(total - sent, 1 + sent % 977);
            if (pool.write(numbered(size, static_cast<std::uint8_t>(sent))) == 0)
                sent += size;
            else
                std::this_thread::yield();
        }
    });
    for (std::size_t got = 0; got < total;) {
        const auto size = static_cast<std::size_t>(seqpool_askDataSize(pool.pool));
        if (size == 0)
            std::this_thread::yield();
        EXPECT_EQ(pool.read(size), numbered(size, static_cast<std::uint8_t>(got)));
        got += size;
    }
    writer.join();
    pool.expect_holds(0, page - 1);
}

TEST(SequencePool, OutOfMemory)
{
    const std::string init_text = "totalSize = 8192\npageSize = 4096\npageNum = 2\n";
    const std::string failure = "Can't allocate memory.\n";
    int n = 0;
    EXPECT_EQ(fail_each_allocation([&] {
                  seqpool *pool = nullptr;
                  int result = 0;
                  const std::string printed =
                      stdout_of([&] { result = seqpool_init(&pool, 2 * page); });
                  EXPECT_EQ(printed, (n == 0 ? "" : init_text) + (n == 3 ? "" : failure));
                  EXPECT_EQ(pool != nullptr, result == 0);
                  seqpool_destroy(&pool);
                  ++n;
                  return result == 0;
              }),
              3);

    // A pool that cannot grow as asked goes on with the pages it has.
    Pool pool(page);
    n = 0;
    EXPECT_EQ(fail_each_allocation([&] {
                  EXPECT_EQ(pool.set_size(page, ""), 0);
                  EXPECT_EQ(pool.write(numbered(100, 0)), 0);
                  const int result = pool.set_size(
                      4 * page, n == 3 ? "" : "seqpool_setSize: can't allocate memory.\n");
                  const int capacity = (1 + n) * static_cast<int>(page) - 1;
                  pool.expect_holds(0, capacity);
                  EXPECT_EQ(pool.write(numbered(static_cast<std::size_t>(capacity), 0)), 0);
                  ++n;
                  return result == 0;
              }),
              3);
}

} // namespace
