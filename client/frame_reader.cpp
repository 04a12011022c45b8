#include "client/frame_reader.h"

#include <cstring>

namespace va
{

void FrameReader::append(std::span<const std::uint8_t> bytes)
{
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(taken_));
    taken_ = 0;
    buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
}

FrameReader::Result FrameReader::next(std::span<const std::uint8_t> &payload)
{
    if (untaken().size() < length_size)
        return Result::Incomplete;
    const std::uint32_t length = announced();
    if (length > MAX_PAYLOAD)
        return Result::BadLength;
    if (untaken().size() - length_size < length)
        return Result::Incomplete;
    payload = untaken().subspan(length_size, length);
    taken_ += length_size + length;
    return Result::Frame;
}

std::uint32_t FrameReader::announced() const
{
    std::uint32_t length = 0;
    if (untaken().size() >= length_size)
        std::memcpy(&length, untaken().data(), length_size);
    return length;
}

} // namespace va
