#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace va
{

// Cuts a result stream into frames. On the socket each frame is a 32-bit payload length in the
// machine's own byte order, then that many payload bytes; frames follow each other back to back.
//
// One reader per connection, used by one thread. A new connection starts with a new reader: what an
// earlier connection left unfinished never continues.
class FrameReader
{
public:
    // Far more than any stream can carry (65531 bytes): a longer length means that the peer speaks
    // something else. It bounds the reader's memory, whatever the peer sends.
    static constexpr std::uint32_t MAX_PAYLOAD = 1024 * 1024;

    enum class Result {
        Frame,      // `payload` is the next frame's
        Incomplete, // append more bytes first
        BadLength,  // the length is above MAX_PAYLOAD; the stream is lost, close the connection
    };

    // Takes the bytes that one read brought, however they are cut: in the middle of a length, many
    // frames at once. Memory grows with the bytes received, never with a length announced. Throws
    // std::bad_alloc.
    void append(std::span<const std::uint8_t> bytes);

    // The next frame, in the order sent; call it until it returns something else than Frame. The
    // payload lies in the reader and is valid until the next append(). BadLength is for good.
    Result next(std::span<const std::uint8_t> &payload);

    // The length in front of the current frame, 0 while it is not complete: what BadLength found.
    std::uint32_t announced() const;

    // True between frames: an end of file now has cut nothing off.
    bool at_boundary() const { return untaken().empty(); }

private:
    static constexpr std::size_t length_size = sizeof(std::uint32_t);

    std::span<const std::uint8_t> untaken() const { return std::span(buffer_).subspan(taken_); }

    std::vector<std::uint8_t> buffer_;
    std::size_t taken_ = 0; // bytes at the front that next() has handed out
};

} // namespace va
