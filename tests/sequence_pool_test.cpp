#include "tests/support/capture.h"
#include "tests/support/event_failing_new.h"
#include "util/sequence_pool.h"

#include <algorithm>
#include <deque>
#include <random>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace
{

constexpr unsigned page = 4096;

TEST(SequencePool, IsMadeOfWholePages)
{
    seqpool *pool = nullptr;
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(seqpool_init(&pool, 4097 * page), -1); }),
              "totalSize = 16781312\npageSize = 4096\npageNum = 4097\n"
              "Exceed max seqpool block number.\n");
    EXPECT_EQ(seqpool_init(&pool, 4097 * page - 1), 0);
    EXPECT_EQ(seqpool_askAvailSize(pool), static_cast<int>(4096 * page - 1));
    seqpool_destroy(&pool);
    const auto init = [&] {
        const int result = seqpool_init(&pool, 2 * page);
        seqpool_destroy(&pool);
        return result == 0;
    };
    EXPECT_EQ(fail_each_allocation(init), 3);
}

// Transfers that just fit and just do not, wraps, and new sizes of empty, full and wrapped pools,
// with and without memory for all their pages.
TEST(SequencePool, BehavesLikeADeque)
{
    seqpool *pool = nullptr;
    seqpool_init(&pool, 3 * page);
    unsigned pages = 3;
    std::deque<std::uint8_t> model;
    std::mt19937 random(20240501); // any seed will do; a fixed one repeats
    const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    for (int step = 0; step < 4000; ++step) {
        const auto stored = static_cast<unsigned>(model.size());
        const unsigned room = pages > 0 ? pages * page - 1 - stored : 0;
        EXPECT_EQ(seqpool_askDataSize(pool), static_cast<int>(stored));
        EXPECT_EQ(seqpool_askAvailSize(pool), static_cast<int>(room));
        const unsigned sizes[] = {room, room + 1, stored, stored + 1, below(6000)};
        const unsigned size = sizes[below(5)];
        std::vector<std::uint8_t> bytes(size);
        std::ranges::generate(bytes, random);
        const unsigned action = below(100);
        if (action < 2) {
            EXPECT_EQ(seqpool_setSize(pool, 4097 * page), -1); // changes nothing
        } else if (action < 5) {
            const unsigned wanted = below(6);
            const unsigned reached = std::min(wanted, pages + below(3));
            allocations_left = reached < wanted ? static_cast<int>(reached - pages) : -1;
            EXPECT_EQ(seqpool_setSize(pool, wanted * page + 17), reached == wanted ? 0 : -1);
            pages = reached;
            model.clear();
        } else if (action < 60) {
            EXPECT_EQ(seqpool_writeData(pool, bytes.data(), size), size <= room ? 0 : -1);
            if (size <= room)
                model.insert(model.end(), bytes.begin(), bytes.end());
        } else {
            std::uint8_t *const to = action < 70 ? nullptr : bytes.data();
            EXPECT_EQ(seqpool_readData(pool, to, size), size <= stored ? 0 : -1);
            const auto end = model.begin() + (size <= stored ? size : 0);
            EXPECT_TRUE(!to || std::equal(model.begin(), end, to));
            model.erase(model.begin(), end);
        }
    }
    seqpool_destroy(&pool);
}

TEST(SequencePool, CarriesAStreamBetweenTwoThreads)
{
    constexpr unsigned chunk = 977;
    std::vector<std::uint8_t> sent(300 * chunk);
    std::ranges::generate(sent, std::mt19937());
    std::vector<std::uint8_t> received(sent.size());
    seqpool *pool = nullptr;
    seqpool_init(&pool, page);
    std::thread writer([&] {
        for (auto from = sent.begin(); from != sent.end();)
            from += seqpool_writeData(pool, &*from, chunk) == 0 ? chunk : 0;
    });
    for (auto to = received.begin(); to != received.end();) {
        const int size = std::max(seqpool_askDataSize(pool), 1);
        to += seqpool_readData(pool, &*to, static_cast<unsigned>(size)) == 0 ? size : 0;
    }
    writer.join();
    EXPECT_EQ(received, sent);
    seqpool_destroy(&pool);
}

} // namespace
