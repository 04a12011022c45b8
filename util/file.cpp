#include "util/file.h"

#include "util/fd.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace va
{

namespace
{

bool is_replaceable(const char *path)
{
    struct stat found;
    if (lstat(path, &found) != 0)
        return errno == ENOENT;
    errno = S_ISDIR(found.st_mode) ? EISDIR : EINVAL;
    return S_ISREG(found.st_mode) || S_ISLNK(found.st_mode);
}

// One that a process of this number left when it was killed gives way.
Fd create_file(const char *path, mode_t mode)
{
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
    Fd fd(open(path, flags, mode));
    if (!fd && errno == EEXIST && unlink(path) == 0)
        fd = Fd(open(path, flags, mode));
    return fd;
}

} // namespace

int write_whole(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written == 0)
            errno = EIO;
        if (written == 0 || (written < 0 && errno != EINTR))
            return -1;
        bytes.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
    }
    return 0;
}

int replace_file(const std::string &path, std::string_view content, mode_t mode)
{
    if (!is_replaceable(path.c_str()))
        return -1;
    const std::string fresh = path + '.' + std::to_string(getpid()) + ".new";
    const Fd fd = create_file(fresh.c_str(), mode);
    if (!fd)
        return -1;
    if (write_whole(fd.get(), content) == 0 && std::rename(fresh.c_str(), path.c_str()) == 0)
        return 0;
    const int error = errno;
    unlink(fresh.c_str());
    errno = error;
    return -1;
}

void throw_file_error(const std::string &path)
{
    throw std::system_error(errno, std::generic_category(), path);
}

} // namespace va
