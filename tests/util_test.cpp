#include "tests/support/event_failing_new.h"
#include "tests/support/program.h"
#include "tests/support/temp_dir.h"
#include "util/sequence_pool.h"
#include "util/util.h"

#include <algorithm>
#include <deque>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace
{

TEST(Util, WritesReplaceTheFileOrReport)
{
    const TempDir dir;
    const std::string path = dir.file("name");
    EXPECT_EQ(file_printf(path.c_str(), "%5000d", 42), 0);
    EXPECT_EQ(read_file(path), std::string(4095, ' ')) << "cut";
    EXPECT_EQ(file_write(path.c_str(), "a\0b", 3), 0);
    EXPECT_EQ(read_file(path), std::string("a\0b", 3));
    EXPECT_EQ(file_write_str("/dev/full", "x"), -1);
    const std::string fifo = dir.file("fifo");
    EXPECT_EQ(pipe_write(fifo.c_str(), std::string(1 << 21, 'x').data(), 1 << 21), -1) << "waits";
}

TEST(Util, MakesDirectories)
{
    const TempDir dir;
    umask(027);
    for (const std::string &path : {dir.file("a/b/c"), dir.file("t/u/")}) {
        EXPECT_EQ(dir_create(path.c_str()), 0);
        EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms{0750});
    }
}

constexpr unsigned page = 4096;

// Transfers that just fit and just do not, wraps, and new sizes of empty, full and wrapped pools,
// with and without memory for all their pages.
TEST(SequencePool, BehavesLikeADeque)
{
    seqpool *pool = nullptr;
    EXPECT_EQ(seqpool_init(&pool, 4097 * page), -1);
    unsigned pages = 3;
    EXPECT_EQ(fail_each_allocation([&] { return seqpool_init(&pool, pages * page) == 0; }), 4);
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
    constexpr unsigned count = 20'000;
    seqpool *pool = nullptr;
    seqpool_init(&pool, page);
    std::thread writer([&] {
        for (unsigned next = 0; next < count;)
            next += seqpool_writeData(pool, &next, sizeof next) == 0;
    });
    int damaged = 0;
    for (unsigned expected = 0, received = 0; expected < count;) {
        if (seqpool_readData(pool, &received, sizeof received) == 0)
            damaged += received != expected++;
    }
    writer.join();
    EXPECT_EQ(damaged, 0);
    seqpool_destroy(&pool);
}

} // namespace
