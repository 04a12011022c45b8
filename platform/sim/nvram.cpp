#include "platform/nvram.h"

#include "platform/sim/text.h"
#include "util/fd.h"
#include "util/guarded.h"
#include "util/text.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// The store is a text file. Each call checks whether it was replaced or changed, and reads it then:
// a change takes effect at once. It holds key=value lines, which end in LF or CR LF; a line that
// begins with # is a comment (no key does), one without = is ignored, and the last line of a key
// counts. A file written in place may be seen half written; one renamed into place is always seen
// whole. While the file cannot be read, or is gone, what was read last stays; before the first time
// the store is empty.

namespace
{

using va::error_text;
using va::sim::say;

constexpr std::string_view sensor_key = "Properties.ImageSource.Sensor";

// Far beyond any store of settings. What lies behind it is ignored, so that no file, endless ones
// included, costs more time or memory.
constexpr std::size_t store_limit = 1 << 20;

using Nanoseconds = std::int64_t; // since 1970

Nanoseconds time_of(const timespec &time)
{
    constexpr std::int64_t second = 1'000'000'000;
    return time.tv_sec * second + time.tv_nsec;
}

// Shows whether a regular file is still what it was.
struct Stamp {
    bool operator==(const Stamp &) const = default;

    dev_t device;
    ino_t file;
    off_t size;
    Nanoseconds modified;
    Nanoseconds changed;
};

struct Store {
    std::string path;
    std::string text;
    bool was_read = false;
    std::optional<Stamp> stamp; // of the file, when any change of that gives it another one
    int error = 0;              // why it cannot be read; what lasts is reported once
    bool no_sensor = false;     // likewise
};

std::mutex store_lock;
Store store VA_GUARDED_BY(store_lock);

// Of the file at `path`, or of `fd` where that is empty.
std::optional<Stamp> stamp_of(int fd, const char *path)
{
    struct stat status;
    if (fstatat(fd, path, &status, AT_EMPTY_PATH) == -1 || !S_ISREG(status.st_mode))
        return std::nullopt;
    return Stamp{status.st_dev, status.st_ino, status.st_size, time_of(status.st_mtim),
                 time_of(status.st_ctim)};
}

// Whether a change of the file after `moment` gives it another stamp. File systems stamp by a clock
// that is up to 10 ms behind, and some in steps of one or two seconds.
bool is_settled(const Stamp &stamp, Nanoseconds moment)
{
    constexpr Nanoseconds second = 1'000'000'000;
    const bool coarse = stamp.modified % second == 0 || stamp.changed % second == 0;
    return std::max(stamp.modified, stamp.changed) < moment - (coarse ? 2 * second : second / 50);
}

// Returns why not all could be read, 0 if it could.
int read_all(int fd, std::string &text)
{
    char part[4096];
    while (text.size() < store_limit) {
        const ssize_t count = read(fd, part, sizeof part);
        if (count == 0)
            break;
        if (count > 0)
            text.append(part, static_cast<std::size_t>(count));
        else if (errno != EINTR)
            return errno;
    }
    return 0;
}

// As read_all(). Unless it fails, the store is what the file holds.
int read_file() VA_REQUIRES(store_lock)
{
    constexpr int of_any_size = O_LARGEFILE; // else a 32-bit process is refused 2 GiB and more
    const va::Fd fd(
        open(store.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | of_any_size));
    if (!fd)
        return errno;
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    std::optional<Stamp> stamp = stamp_of(fd.get(), "");
    std::string text;
    if (const int error = read_all(fd.get(), text))
        return error;
    // The stamp of a file that the kernel makes up as it is read says nothing; its size shows that.
    if (stamp &&
        (!is_settled(*stamp, time_of(now)) ||
         std::cmp_not_equal(text.size(), std::min<std::int64_t>(stamp->size, store_limit))))
        stamp.reset();
    store.text = std::move(text);
    store.was_read = true;
    store.stamp = stamp;
    return 0;
}

void read_store(const char *path) VA_REQUIRES(store_lock)
{
    if (store.path != path) {
        store = {};
        store.path = path;
    }
    const std::optional<Stamp> stamp = stamp_of(AT_FDCWD, path);
    const int error = stamp && stamp == store.stamp ? 0 : read_file();
    if (std::exchange(store.error, error) != error && error != 0)
        say("%s: cannot be read: %s%s", path, error_text(error).c_str(),
            store.was_read ? "; what was read last stays in use" : "");
}

std::optional<std::string_view> find_value(std::string_view text, std::string_view key)
{
    std::optional<std::string_view> value;
    while (!text.empty()) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        const std::size_t equals = line.find('=');
        if (equals != line.npos && line.substr(0, equals) == key)
            value = line.substr(equals + 1);
    }
    return value;
}

const char *store_path()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing changes the environment while threads run.
    const char *path = std::getenv("NVRAM_FILE");
    return path ? path : "/etc/nvram.conf";
}

// Of the store as it is now, or as it was read last.
std::optional<std::string_view> value_of(std::string_view key) VA_REQUIRES(store_lock)
{
    const char *path = store_path();
    try {
        read_store(path);
    } catch (const std::bad_alloc &) {
        say("%s: no memory to read it", path);
    }
    const auto value = find_value(store.text, key);
    const bool no_sensor = key == sensor_key && (!value || value->empty());
    if (key == sensor_key && std::exchange(store.no_sensor, no_sensor) != no_sensor && no_sensor)
        say("%s: no %s", path, sensor_key.data());
    return value;
}

} // namespace

int nvram_get_with_buffer(char *buffer, std::size_t size, const char *default_text, const char *key,
                          ...)
{
    char name[256]; // no longer key has a value
    std::va_list arguments;
    va_start(arguments, key);
    const int length = std::vsnprintf(name, sizeof name, key, arguments);
    va_end(arguments);

    const va::ScopedLock lock(store_lock);
    std::optional<std::string_view> value;
    if (length >= 0 && static_cast<std::size_t>(length) < sizeof name)
        value = value_of(name);
    if (!value && default_text)
        value = default_text;
    if (!value || size == 0)
        return 0;
    buffer[value->copy(buffer, size - 1)] = '\0';
    return 1;
}
