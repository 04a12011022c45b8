#include "client/capture.h"

#include "client/frame_reader.h"
#include "util/file.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <vector>

namespace va
{

namespace
{

using std::chrono::microseconds;

CaptureFile open_file(const std::string &path, const char *mode)
{
    CaptureFile file(std::fopen(path.c_str(), mode));
    if (!file)
        throw_file_error(path);
    return file;
}

template <class Plain>
std::span<const std::uint8_t> bytes_of(const Plain &plain)
{
    return {reinterpret_cast<const std::uint8_t *>(&plain), sizeof plain};
}

// Null when all is well.
const char *fault_of(const CaptureHeader &header)
{
    if (!std::ranges::equal(header.magic, CAPTURE_MAGIC))
        return "no capture of va_dump";
    if (header.byte_order != CAPTURE_BYTE_ORDER)
        return "a capture of a machine with the other byte order";
    return header.version == CAPTURE_VERSION ? nullptr : "a capture of another version of va_dump";
}

// Reads a capture piece by piece, behind its header.
class Reader
{
public:
    explicit Reader(const std::string &path) : path_(path), file_(open_file(path, "rbe"))
    {
        CaptureHeader header{};
        if (read_plain(header) < sizeof header)
            header = {};
        if (const char *fault = fault_of(header))
            throw std::runtime_error(path + ": this is " + fault);
    }

    // How many bytes there were, at most the buffer's size.
    std::size_t read(std::span<std::uint8_t> buffer)
    {
        const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), file_.get());
        if (got < buffer.size() && std::ferror(file_.get()))
            throw_file_error(path_);
        return got;
    }

    template <class Plain>
    std::size_t read_plain(Plain &plain)
    {
        return read({reinterpret_cast<std::uint8_t *>(&plain), sizeof plain});
    }

private:
    const std::string &path_;
    CaptureFile file_;
};

bool is_plausible(const CaptureRecordHeader &header)
{
    constexpr std::int64_t latest = 9'000'000'000'000'000; // in 2255: the clock's type ends in 2262
    return header.time >= 0 && header.time <= latest && header.length <= FrameReader::MAX_PAYLOAD;
}

// Nothing when it names none.
std::optional<Stream> stream_of(const CaptureRecordHeader &header)
{
    const auto *end = std::ranges::find(header.stream, '\0');
    return find_stream({header.stream, static_cast<std::size_t>(end - header.stream)});
}

} // namespace

CaptureWriter::CaptureWriter(std::string path, std::optional<std::uint64_t> size)
    : path_(std::move(path)), size_(size)
{
    begin();
    std::error_code ignored;
    if (size && !std::filesystem::is_regular_file(path_, ignored))
        throw std::runtime_error(path_ + ": is no file that could be renamed");
}

void CaptureWriter::begin()
{
    file_ = open_file(path_, "wbe");
    written_ = 0;
    CaptureHeader header{{}, CAPTURE_VERSION, CAPTURE_BYTE_ORDER};
    std::ranges::copy(CAPTURE_MAGIC, header.magic);
    write(bytes_of(header));
    flush();
}

void CaptureWriter::write(const Record &record)
{
    CaptureRecordHeader header{};
    header.time = std::chrono::duration_cast<microseconds>(record.time.time_since_epoch()).count();
    name_of(record.stream).copy(header.stream, sizeof header.stream);
    header.length = static_cast<std::uint32_t>(record.payload.size());
    if (size_ && written_ + sizeof header + record.payload.size() > *size_ &&
        written_ > sizeof(CaptureHeader))
        rotate();
    write(bytes_of(header));
    write(record.payload);
}

void CaptureWriter::rotate()
{
    flush();
    if (std::rename(path_.c_str(), (path_ + ".1").c_str()) != 0)
        throw_file_error(path_ + ".1");
    begin();
}

void CaptureWriter::flush()
{
    if (std::fflush(file_.get()) != 0)
        throw_file_error(path_);
}

void CaptureWriter::write(std::span<const std::uint8_t> bytes)
{
    if (std::fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size())
        throw_file_error(path_);
    written_ += bytes.size();
}

void check_capture(const std::string &path)
{
    Reader{path};
}

std::string read_capture(const std::string &path, const std::function<bool(const Record &)> &take)
{
    Reader reader(path);
    CaptureRecordHeader header;
    std::vector<std::uint8_t> payload;
    std::int64_t first = 0;
    Elapsed at{};
    for (bool begun = false;; begun = true) {
        const std::size_t got = reader.read_plain(header);
        if (got == 0)
            return "";
        if (got < sizeof header)
            return "ends within a record";
        const auto stream = stream_of(header);
        if (!stream || !is_plausible(header))
            return "damaged behind the last record shown";
        payload.resize(header.length);
        if (reader.read(payload) < payload.size())
            return "ends within a record";
        if (!begun)
            first = header.time;
        at = std::max(at, Elapsed(header.time - first)); // the clock may have been set back
        const SystemTime time{microseconds(header.time)};
        if (!take({*stream, time, at, payload}))
            return "";
    }
}

} // namespace va
