#include "tools/common/still_file.h"

#include "tools/common/printing.h"
#include "util/fd.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace va
{

namespace
{

// Of the comment right behind the two bytes with which each JPEG begins.
std::optional<std::uint32_t> number_in(std::string_view jpeg)
{
    constexpr std::size_t head = 6; // two markers of two bytes, two bytes of length
    constexpr std::string_view word = "picture ";
    if (jpeg.size() < head || jpeg.substr(2, 2) != "\xff\xfe")
        return {};
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(jpeg[i]); };
    const std::size_t length = byte(4) * 256U + byte(5);
    const std::string_view comment = jpeg.substr(head, std::max<std::size_t>(length, 2) - 2);
    std::uint32_t number = 0;
    if (!comment.starts_with(word) ||
        std::from_chars(comment.data() + word.size(), comment.data() + comment.size(), number).ec !=
            std::errc())
        return {};
    return number;
}

bool is_same(const struct stat &a, const struct stat &b)
{
    return a.st_ino == b.st_ino && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
           a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

} // namespace

StillFile::StillFile(std::string path, Limits limits) : path_(std::move(path)), limits_(limits)
{
    stat(path_.c_str(), &file_);
}

std::optional<Still> StillFile::look(Elapsed now)
{
    if (now < due_)
        return std::nullopt;
    due_ = now + limits_.poll;
    std::string jpeg = read_new();
    if (!jpeg.empty()) {
        due_ = now + limits_.interval;
        seen_ = now;
        const std::optional<std::uint32_t> picture = number_in(jpeg);
        return Still{std::move(jpeg), picture};
    }
    if (!seen_ || now - *seen_ <= limits_.kept)
        return std::nullopt;
    seen_.reset();
    return Still{};
}

// Empty when there is none. The file that is open stays as it is, whatever takes its place.
std::string StillFile::read_new()
{
    const Fd fd(open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat found = {};
    if (!fd || fstat(fd.get(), &found) != 0 || is_same(found, std::exchange(file_, found)))
        return "";
    const bool fits = found.st_size <= limits_.largest;
    std::string jpeg(fits ? static_cast<std::size_t>(found.st_size) : 0, '\0');
    const ssize_t got = read(fd.get(), jpeg.data(), jpeg.size());
    if (got == found.st_size && jpeg.starts_with("\xff\xd8") && jpeg.ends_with("\xff\xd9"))
        return jpeg;
    const std::string fault =
        path_ +
        (fits ? ": no whole JPEG" : ": larger than " + std::to_string(limits_.largest) + " bytes");
    if (std::exchange(said_, fault) != fault)
        say(fault);
    return "";
}

} // namespace va
