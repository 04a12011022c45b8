#include "platform/nvram.h"

#include "platform/sim/text.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

// The store is a text file, looked at afresh in each call: a change takes effect at once, and all
// that threads share is what was last said about it. It holds key=value lines, which end in LF or
// CR LF; a line that begins with # is a comment, one without = is passed over, and the last line of
// a key counts. A file written in place may be seen half written; one renamed into place is always
// seen whole.

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

// Returns how many bytes were read; `error` is why there are no more, 0 at the end of the file.
std::size_t read_file(const char *path, char *buffer, std::size_t size, int &error)
{
    constexpr int of_any_size = O_LARGEFILE; // else a 32-bit process is refused 2 GiB and more
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | of_any_size);
    error = fd == -1 ? errno : 0;
    std::size_t length = 0;
    while (error == 0 && length < size) {
        const ssize_t count = read(fd, buffer + length, size - length);
        if (count == 0)
            break;
        if (count > 0)
            length += static_cast<std::size_t>(count);
        else if (errno != EINTR)
            error = errno;
    }
    if (fd != -1)
        close(fd);
    return length;
}

// A lasting fault is told once, not in each call: again after it was gone, or was another.

void tell_unreadable(const char *path, int error)
{
    static std::atomic<int> told{0};
    if (told.exchange(error) != error && error != 0)
        say("%s: cannot be read: %s", path, std::strerror(error));
}

void tell_no_sensor(const char *path, bool missing)
{
    static std::atomic<bool> told{false};
    if (!told.exchange(missing) && missing)
        say("%s: no %s", path, sensor_key);
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
    std::optional<std::string_view> value;
    const std::unique_ptr<char[]> content(new (std::nothrow) char[store_limit]);
    if (content && name_length >= 0 && static_cast<std::size_t>(name_length) < sizeof name) {
        int error = 0;
        const std::size_t length = read_file(path, content.get(), store_limit, error);
        tell_unreadable(path, error);
        value = find_value({content.get(), length}, name);
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
