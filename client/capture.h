#pragma once

#include "client/record.h"

#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>

// Captures: records in a file, with the times at which they arrived. All numbers are in the byte
// order of the machine that wrote it, as the payloads are; a capture of the other order is refused.

namespace va
{

inline constexpr char CAPTURE_MAGIC[8] = {'v', 'a', '_', 'd', 'u', 'm', 'p', '\n'};
inline constexpr std::uint32_t CAPTURE_VERSION = 1;
inline constexpr std::uint32_t CAPTURE_BYTE_ORDER = 0x01020304;

struct CaptureHeader {
    char magic[8];
    std::uint32_t version;
    std::uint32_t byte_order;
};
static_assert(offsetof(CaptureHeader, version) == 8 && offsetof(CaptureHeader, byte_order) == 12 &&
              sizeof(CaptureHeader) == 16);

// In front of each payload.
struct CaptureRecordHeader {
    std::int64_t time;    // microseconds since 1970, UTC
    char stream[4];       // the stream's name, zeros behind it
    std::uint32_t length; // of the payload, bytes
};
static_assert(offsetof(CaptureRecordHeader, stream) == 8 &&
              offsetof(CaptureRecordHeader, length) == 12 && sizeof(CaptureRecordHeader) == 16);

struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using CaptureFile = std::unique_ptr<std::FILE, CloseFile>;

// Writes a capture. Before the file would grow beyond `size` bytes it is renamed to PATH.1, and
// another one is begun. All throw std::system_error.
class CaptureWriter
{
public:
    // Throws std::runtime_error too, when what is to be renamed is no file.
    explicit CaptureWriter(std::string path, std::optional<std::uint64_t> size = {});
    void write(const Record &record);
    void flush();

private:
    void begin();
    void rotate();
    void write(std::span<const std::uint8_t> bytes);

    std::string path_;
    std::optional<std::uint64_t> size_;
    std::uint64_t written_ = 0; // bytes, to this file
    CaptureFile file_;
};

// Throws what read_capture() would throw of the file's beginning.
void check_capture(const std::string &path);

// Hands on the records of a capture, one after another, until `take` returns false; a payload is
// valid during the call. Returns what is wrong with the file's end, for people, and nothing when it
// is whole; all records before are handed on. Throws std::system_error when the file cannot be
// read, and std::runtime_error when it is none of ours.
std::string read_capture(const std::string &path, const std::function<bool(const Record &)> &take);

} // namespace va
