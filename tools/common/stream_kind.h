#pragma once

#include "tools/common/field.h"

#include <cstddef>
#include <span>
#include <string_view>

// The daemon's result streams and what their records are made of.

struct StreamKind {
    std::string_view name;         // of the stream and of its socket
    std::size_t entry_words;       // 32-bit words of one entry of a payload
    std::span<const Field> fields; // as many; none where the words are the chip's own
};

inline constexpr std::size_t STREAM_COUNT = 4;
extern const StreamKind STREAM_KINDS[STREAM_COUNT];

// Null for a name that is none.
const StreamKind *find_stream(std::string_view name);

// The kind's place in STREAM_KINDS.
std::size_t index_of(const StreamKind &kind);
