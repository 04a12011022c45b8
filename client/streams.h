#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

// The daemon's result streams, and what their records are made of.
namespace va
{

// Whoever branches on a stream does it in a switch without a default, so that the compiler names
// each place that has to know of a new one.
enum class Stream { Od, Vmf, Fd, Ta };

inline constexpr std::array STREAMS = {Stream::Od, Stream::Vmf, Stream::Fd, Stream::Ta};
inline constexpr std::size_t STREAM_COUNT = STREAMS.size();

constexpr std::size_t index_of(Stream stream)
{
    return static_cast<std::size_t>(stream);
}

// One 32-bit word of an entry of a payload.
struct Field {
    std::string_view name;
    bool is_signed = false;
    const char *(*meaning)(std::int32_t code) = nullptr; // the word for it, if there is one
};

// Of the entries of "od" and "fd"; empty where their layout is not known (client/entries.h).
extern const std::span<const Field> OBJECT_FIELDS;
extern const std::span<const Field> FACE_FIELDS;

struct StreamInfo {
    std::string_view name;         // of the stream and of its socket; ends with a zero
    std::string_view module;       // which has to run for it
    std::size_t entry_words;       // 32-bit words of one entry of a payload
    std::span<const Field> fields; // as many; none where the words are the chip's own
};
StreamInfo info_of(Stream stream);
std::string_view name_of(Stream stream);

// Nothing for a name that is none.
std::optional<Stream> find_stream(std::string_view name);

} // namespace va
