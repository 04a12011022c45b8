#include "util/util.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr std::size_t text_size = 4096;

__attribute__((format(printf, 2, 0))) int write_formatted(const char *path, const char *format,
                                                          va_list arguments)
{
    char text[text_size] = "";
    std::vsnprintf(text, sizeof text, format, arguments);
    return file_write_str(path, text);
}

bool exists(const char *path)
{
    return access(path, F_OK) == 0;
}

} // namespace

int file_open(const char *path)
{
    const int fd = open(path, O_RDWR | O_CREAT | O_TRUNC | O_NONBLOCK | O_CLOEXEC, 0666);
    if (fd == -1)
        std::printf("Can't open %s .\n", path);
    return fd;
}

int file_write(const char *path, const void *data, unsigned length)
{
    const int fd = file_open(path);
    if (fd == -1)
        return -1;
    const ssize_t written = write(fd, data, length);
    close(fd);
    return written >= 0 && static_cast<std::size_t>(written) == length ? 0 : -1;
}

int file_write_str(const char *path, const char *text)
{
    return file_write(path, text, static_cast<unsigned>(std::strlen(text)));
}

int file_printf(const char *path, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = write_formatted(path, format, arguments);
    va_end(arguments);
    return result;
}

int pipe_create(const char *path)
{
    if (exists(path) || mkfifo(path, 0777) == 0)
        return 0;
    std::fprintf(stderr, "create pipe %s fail!", path);
    return -1;
}

int pipe_open(const char *path)
{
    return pipe_create(path) == -1 ? -1 : file_open(path);
}

int pipe_write(const char *path, const void *data, unsigned length)
{
    pipe_create(path);
    return file_write(path, data, length);
}

int pipe_write_str(const char *path, const char *text)
{
    pipe_create(path);
    return file_write_str(path, text);
}

int pipe_printf(const char *path, const char *format, ...)
{
    pipe_create(path);
    va_list arguments;
    va_start(arguments, format);
    const int result = write_formatted(path, format, arguments);
    va_end(arguments);
    return result;
}

int dir_create(const char *path)
{
    // The prefixes are cut in one copy of the path, so a path of any length is handled.
    const std::size_t length = std::strlen(path);
    const std::unique_ptr<char[]> prefix(new (std::nothrow) char[length + 1]);
    if (!prefix)
        return 0;
    std::memcpy(prefix.get(), path, length + 1);
    for (char *slash = std::strchr(prefix.get(), '/'); slash; slash = std::strchr(slash + 1, '/')) {
        const char after = slash[1];
        slash[1] = '\0';
        if (!exists(prefix.get()))
            mkdir(prefix.get(), 0777);
        slash[1] = after;
    }
    if (!exists(path))
        mkdir(path, 0777);
    return 0;
}

std::uint32_t buf2long(const void *bytes)
{
    const auto *byte = static_cast<const std::uint8_t *>(bytes);
    return byte[0] | std::uint32_t{byte[1]} << 8 | std::uint32_t{byte[2]} << 16 |
           std::uint32_t{byte[3]} << 24;
}

int buf2short(const void *bytes)
{
    const auto *byte = static_cast<const std::uint8_t *>(bytes);
    return byte[0] | byte[1] << 8;
}

void long2str(void *bytes, std::uint32_t value)
{
    auto *byte = static_cast<std::uint8_t *>(bytes);
    for (int i = 0; i < 4; ++i)
        byte[i] = static_cast<std::uint8_t>(value >> 8 * i);
}

void short2str(void *bytes, int value)
{
    auto *byte = static_cast<std::uint8_t *>(bytes);
    byte[0] = static_cast<std::uint8_t>(value);
    byte[1] = static_cast<std::uint8_t>(value >> 8);
}

void strtolower(char *text)
{
    for (; *text; ++text)
        *text = static_cast<char>(std::tolower(static_cast<unsigned char>(*text)));
}

void strtoupper(char *text)
{
    for (; *text; ++text)
        *text = static_cast<char>(std::toupper(static_cast<unsigned char>(*text)));
}
