#include "util/sequence_pool.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <vector>

#include <benchmark/benchmark.h>

// Bytes in and out of the paged ring, beside a contiguous ring with the same lock, and beside two
// plain copies.

namespace
{

constexpr std::size_t capacity = std::size_t{64} * 1024;

class ContiguousRing
{
public:
    void write(const unsigned char *source, std::size_t length)
    {
        const std::scoped_lock lock(mutex_);
        const std::size_t front = std::min(length, capacity - write_);
        std::memcpy(&bytes_[write_], source, front);
        std::memcpy(bytes_.data(), source + front, length - front);
        write_ = (write_ + length) % capacity;
    }

    void read(unsigned char *destination, std::size_t length)
    {
        const std::scoped_lock lock(mutex_);
        const std::size_t front = std::min(length, capacity - read_);
        std::memcpy(destination, &bytes_[read_], front);
        std::memcpy(destination + front, bytes_.data(), length - front);
        read_ = (read_ + length) % capacity;
    }

private:
    std::mutex mutex_;
    std::vector<unsigned char> bytes_ = std::vector<unsigned char>(capacity);
    std::size_t read_ = 0;
    std::size_t write_ = 0;
};

template <class Transfer>
void move_bytes(benchmark::State &state, Transfer transfer)
{
    const auto length = static_cast<std::size_t>(state.range(0));
    std::vector<unsigned char> source(length, 0x5a);
    std::vector<unsigned char> destination(length);
    for ([[maybe_unused]] auto iteration : state) {
        transfer(source.data(), destination.data(), length);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void paged_pool(benchmark::State &state)
{
    seqpool *pool = nullptr;
    seqpool_init(&pool, capacity);
    move_bytes(state, [&](const unsigned char *from, unsigned char *to, std::size_t length) {
        seqpool_writeData(pool, from, static_cast<unsigned>(length));
        seqpool_readData(pool, to, static_cast<unsigned>(length));
    });
    seqpool_destroy(&pool);
}

void contiguous_ring(benchmark::State &state)
{
    ContiguousRing ring;
    move_bytes(state, [&](const unsigned char *from, unsigned char *to, std::size_t length) {
        ring.write(from, length);
        ring.read(to, length);
    });
}

void two_copies(benchmark::State &state)
{
    std::vector<unsigned char> between(capacity);
    move_bytes(state, [&](const unsigned char *from, unsigned char *to, std::size_t length) {
        std::memcpy(between.data(), from, length);
        benchmark::ClobberMemory();
        std::memcpy(to, between.data(), length);
    });
}

BENCHMARK(paged_pool)->Arg(64)->Arg(1000)->Arg(16000);
BENCHMARK(contiguous_ring)->Arg(64)->Arg(1000)->Arg(16000);
BENCHMARK(two_copies)->Arg(64)->Arg(1000)->Arg(16000);

} // namespace
