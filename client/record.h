#pragma once

#include "client/streams.h"

#include <chrono>
#include <cstdint>
#include <cstring>
#include <span>

// A record as it arrived, from the daemon or from a capture.
namespace va
{

// Time since the program began to listen or, in a capture, since the first record; never runs
// backwards.
using Elapsed = std::chrono::microseconds;
using SystemTime = std::chrono::system_clock::time_point;

struct Moment {
    SystemTime time;
    Elapsed at;
};

struct Record {
    Stream stream;
    SystemTime time; // of arrival
    Elapsed at;
    std::span<const std::uint8_t> payload;
};

// A payload as 32-bit words in the machine's byte order, and the odd bytes behind them that fill
// none.
class Words
{
public:
    explicit Words(std::span<const std::uint8_t> payload) : payload_(payload) {}

    std::size_t size() const { return payload_.size() / word_size; }
    std::uint32_t operator[](std::size_t index) const
    {
        std::uint32_t word;
        std::memcpy(&word, &payload_[index * word_size], word_size);
        return word;
    }
    std::span<const std::uint8_t> odd_bytes() const { return payload_.subspan(size() * word_size); }

private:
    static constexpr std::size_t word_size = sizeof(std::uint32_t);

    std::span<const std::uint8_t> payload_;
};

} // namespace va
