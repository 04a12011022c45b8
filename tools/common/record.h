#pragma once

#include "tools/common/stream_kind.h"

#include <chrono>
#include <cstdint>
#include <cstring>
#include <span>

// A record as it came, from the daemon or from a capture.

// Time since the listening began or, in a capture, since the first record; never runs backwards.
using Elapsed = std::chrono::microseconds;

struct Moment {
    std::chrono::system_clock::time_point time;
    Elapsed at;
};

struct Record {
    const StreamKind &kind;
    std::chrono::system_clock::time_point time; // when it came
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
