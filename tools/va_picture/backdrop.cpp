#include "tools/va_picture/backdrop.h"

#include "tools/common/printing.h"
#include "util/fd.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace va::picture
{

namespace
{

using std::chrono::milliseconds;

constexpr milliseconds interval{20};  // between two looks at the file
constexpr milliseconds patience{150}; // with a still whose objects have not come: it may have none
constexpr milliseconds kept{2000};    // a still without another, and a result
constexpr std::size_t largest = 4'000'000;

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

} // namespace

Backdrop::Backdrop(std::string path) : path_(std::move(path))
{
    read_file({});
    waiting_.clear();
}

void Backdrop::take(const Seen &objects)
{
    results_.push_back(objects);
    while (objects.at - results_.front().at > kept)
        results_.pop_front();
}

bool Backdrop::look(Elapsed now)
{
    looked_ = now;
    read_file(now);
    bool changed = false;
    while (!waiting_.empty() && may_be_shown(waiting_.front(), now)) {
        shown_ = std::move(waiting_.front());
        waiting_.pop_front();
        changed = true;
    }
    if (!shown_.jpeg.empty() && now - shown_.at > kept) {
        shown_ = {};
        changed = true;
    }
    return changed;
}

Elapsed Backdrop::due() const
{
    return looked_ + interval;
}

const Seen &Backdrop::objects(const Seen &newest) const
{
    if (shown_.jpeg.empty() || !shown_.picture)
        return newest;
    const auto found = std::find_if(results_.rbegin(), results_.rend(), [this](const Seen &seen) {
        return seen.picture == shown_.picture;
    });
    return found == results_.rend() ? nothing_ : *found;
}

// The file that is open stays as it is, whatever takes its place.
void Backdrop::read_file(Elapsed now)
{
    const Fd fd(open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat found = {};
    if (!fd || fstat(fd.get(), &found) != 0)
        return;
    const struct stat last = std::exchange(file_, found);
    if (found.st_ino == last.st_ino && found.st_mtim.tv_sec == last.st_mtim.tv_sec &&
        found.st_mtim.tv_nsec == last.st_mtim.tv_nsec)
        return;
    std::string jpeg(std::min(static_cast<std::size_t>(found.st_size), largest), '\0');
    const ssize_t got = read(fd.get(), jpeg.data(), jpeg.size());
    jpeg.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    if (jpeg.starts_with("\xff\xd8") && jpeg.ends_with("\xff\xd9")) {
        const std::optional<std::uint32_t> picture = number_in(jpeg);
        waiting_.push_back({std::move(jpeg), picture, now});
    } else if (!std::exchange(said_, true)) {
        say(path_ + ": no whole JPEG of at most " + std::to_string(largest) + " bytes");
    }
}

// Objects of its picture have come, or of a later one, or there are none.
bool Backdrop::may_be_shown(const Still &still, Elapsed now) const
{
    return !still.picture || now - still.at >= patience ||
           std::ranges::any_of(results_, [&](const Seen &seen) {
               return seen.picture &&
                      static_cast<std::int32_t>(*seen.picture - *still.picture) >= 0;
           });
}

} // namespace va::picture
