#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

// The daemon's result streams, and their records as text.

struct StreamKind {
    std::string_view name;   // of the stream and of its socket
    std::size_t entry_words; // 32-bit words of one entry of a payload
};

inline constexpr StreamKind STREAM_KINDS[] = {
    {"od", 10}, // the objects of a result
    {"vmf", 4}, // one alarm mask for each event code
    {"fd", 7},  // the faces of a result
    {"ta", 4},  // one tamper result
};

// Null for a name that is none.
const StreamKind *find_stream(std::string_view name);

enum class Base { Decimal, Hexadecimal };

// The words of a payload, entries parted by " | ". Bytes at the end that fill no word follow as two
// hexadecimal digits each.
std::string payload_text(const StreamKind &kind, std::span<const std::uint8_t> payload, Base base);

// One line without its end: local time, stream, payload length, payload.
std::string record_text(const StreamKind &kind, std::span<const std::uint8_t> payload, Base base);
