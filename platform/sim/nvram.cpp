#include "platform/nvram.h"

#include "platform/sim/text.h"
#include "util/guarded.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// The store is a text file. Each call looks whether it is another or was changed, and reads it
// then: a change takes effect at once. It holds key=value lines, which end in LF or CR LF; a line
// that begins with # is a comment, one without = is passed over, and the last line of a key counts.
// A file written in place may be seen half written; one renamed into place is always seen whole.
// While the file cannot be read, or is gone, what was read last stays; before the first time the
// store is empty.

namespace
{

constexpr const char *path_variable = "NVRAM_FILE";
constexpr const char *default_path = "/etc/nvram.conf";

constexpr const char *sensor_key = "Properties.ImageSource.Sensor";

constexpr std::size_t key_size = 256;

// Far beyond any store of settings. What lies behind it is not looked at, so that no file, endless
// ones included, costs more time or memory.
constexpr std::size_t store_limit = 1 << 20;

const char *store_path()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing changes the environment while threads run.
    const char *path = std::getenv(path_variable);
    return path ? path : default_path;
}

using Time = std::pair<std::int64_t, long>; // seconds since 1970, nanoseconds

// Tells whether a regular file is still what it was.
struct Stamp {
    bool operator==(const Stamp &) const = default;

    dev_t device;
    ino_t file;
    off_t size;
    Time modified;
    Time changed;
};

struct Content {
    std::unique_ptr<char[]> text;
    std::size_t length = 0;
    std::optional<Stamp> stamp; // of the file, when any change of that gives it another one
};

// What all threads share.
std::mutex store_lock;
Content last_read VA_GUARDED_BY(store_lock);
char last_path[PATH_MAX] VA_GUARDED_BY(store_lock);

Time time_of(const timespec &time)
{
    return {time.tv_sec, time.tv_nsec};
}

std::optional<Stamp> stamp_of(const struct stat &status)
{
    if (!S_ISREG(status.st_mode))
        return std::nullopt;
    return Stamp{status.st_dev, status.st_ino, status.st_size, time_of(status.st_mtim),
                 time_of(status.st_ctim)};
}

std::optional<Stamp> stamp_of(const char *path)
{
    struct stat status;
    return stat(path, &status) == 0 ? stamp_of(status) : std::nullopt;
}

std::optional<Stamp> stamp_of(int fd)
{
    struct stat status;
    return fstat(fd, &status) == 0 ? stamp_of(status) : std::nullopt;
}

Time now()
{
    timespec time;
    clock_gettime(CLOCK_REALTIME, &time);
    return time_of(time);
}

// Whether a change of the file after `moment` gives it another stamp. File systems stamp by a clock
// that is up to 10 ms behind, and some in steps of one or two seconds.
bool is_settled(const Stamp &stamp, Time moment)
{
    constexpr long one_second = 1'000'000'000; // in nanoseconds
    if (stamp.modified.second == 0 || stamp.changed.second == 0)
        moment.first -= 2;
    else if ((moment.second -= one_second / 50) < 0)
        moment = {moment.first - 1, moment.second + one_second};
    return std::max(stamp.modified, stamp.changed) < moment;
}

// False of a file that the kernel makes up as it is read, whose stamp tells nothing.
bool is_whole(const Content &content, const Stamp &stamp)
{
    return std::cmp_equal(content.length, std::min<std::int64_t>(stamp.size, store_limit));
}

// The next two return why not all could be read, 0 if it could.

int read_all(int fd, Content &content)
{
    content.text.reset(new (std::nothrow) char[store_limit]);
    if (!content.text)
        return ENOMEM;
    while (content.length < store_limit) {
        const ssize_t count =
            read(fd, content.text.get() + content.length, store_limit - content.length);
        if (count == 0)
            break;
        if (count > 0)
            content.length += static_cast<std::size_t>(count);
        else if (errno != EINTR)
            return errno;
    }
    return 0;
}

int read_file(const char *path, Content &content)
{
    constexpr int of_any_size = O_LARGEFILE; // else a 32-bit process is refused 2 GiB and more
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | of_any_size);
    if (fd == -1)
        return errno;
    const Time moment = now();
    const std::optional<Stamp> stamp = stamp_of(fd);
    const int error = read_all(fd, content);
    close(fd);
    if (stamp && is_whole(content, *stamp) && is_settled(*stamp, moment))
        content.stamp = stamp;
    return error;
}

// A lasting fault is told once, not in each call: again after it was gone, or was another.

void tell_unreadable(const char *path, int error) VA_REQUIRES(store_lock)
{
    static int told = 0;
    if (std::exchange(told, error) != error && error != 0)
        say("%s: cannot be read: %s%s", path, std::strerror(error),
            last_read.text ? "; what was read last stays in use" : "");
}

void tell_no_sensor(const char *path, bool missing) VA_REQUIRES(store_lock)
{
    static bool told = false;
    if (!std::exchange(told, missing) && missing)
        say("%s: no %s", path, sensor_key);
}

void read_store(const char *path) VA_REQUIRES(store_lock)
{
    if (std::strcmp(path, last_path) != 0) {
        last_read = {};
        std::snprintf(last_path, sizeof last_path, "%s", path);
    }
    const std::optional<Stamp> stamp = stamp_of(path);
    if (stamp && stamp == last_read.stamp) {
        tell_unreadable(path, 0);
        return;
    }
    Content content;
    const int error = read_file(path, content);
    tell_unreadable(path, error);
    if (error == 0)
        last_read = std::move(content);
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
        if (equals != line.npos && line.substr(0, equals) == key && !line.starts_with('#'))
            value = line.substr(equals + 1);
    }
    return value;
}

void copy_text(std::string_view text, char *buffer, std::size_t size)
{
    const std::size_t length = std::min(text.size(), size - 1);
    std::memcpy(buffer, text.data(), length);
    buffer[length] = '\0';
}

} // namespace

int nvram_get_with_buffer(char *buffer, std::size_t size, const char *default_text, const char *key,
                          ...)
{
    char name[key_size];
    va_list arguments;
    va_start(arguments, key);
    const int name_length = std::vsnprintf(name, sizeof name, key, arguments);
    va_end(arguments);

    const char *path = store_path();
    const va::ScopedLock lock(store_lock);
    std::optional<std::string_view> value;
    if (name_length >= 0 && static_cast<std::size_t>(name_length) < sizeof name) {
        read_store(path);
        value = find_value({last_read.text.get(), last_read.length}, name);
        if (name == std::string_view(sensor_key))
            tell_no_sensor(path, !value || value->empty());
    }
    if (!value && default_text)
        value = default_text;
    if (!value || size == 0)
        return 0;
    copy_text(*value, buffer, size);
    return 1;
}
