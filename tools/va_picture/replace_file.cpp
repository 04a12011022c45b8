#include "tools/va_picture/replace_file.h"

#include "tools/common/file_error.h"
#include "util/fd.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <sys/stat.h>

namespace
{

// A new file beside `path`, which is removed unless it has taken its place.
class Beside
{
public:
    explicit Beside(const std::string &path)
        : name_(path + ".XXXXXX"), fd_(mkostemp(name_.data(), O_CLOEXEC))
    {
        if (!fd_)
            throw_file_error(path);
    }
    ~Beside()
    {
        if (!name_.empty())
            unlink(name_.c_str());
    }
    Beside(const Beside &) = delete;
    Beside &operator=(const Beside &) = delete;

    bool write(std::string_view content) const
    {
        while (!content.empty()) {
            const ssize_t written = ::write(fd_.get(), content.data(), content.size());
            if (written < 0 && errno != EINTR)
                return false;
            content.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
        }
        const mode_t mask = umask(0);
        umask(mask);
        return fchmod(fd_.get(), 0666 & ~mask) == 0;
    }

    bool take_place_of(const std::string &path)
    {
        if (std::rename(name_.c_str(), path.c_str()) != 0)
            return false;
        name_.clear();
        return true;
    }

private:
    std::string name_;
    Fd fd_;
};

bool is_replaceable(const std::string &path)
{
    struct stat found;
    if (lstat(path.c_str(), &found) != 0)
        return errno == ENOENT;
    errno = S_ISDIR(found.st_mode) ? EISDIR : EINVAL;
    return S_ISREG(found.st_mode) || S_ISLNK(found.st_mode);
}

} // namespace

void replace_file(const std::string &path, const std::string &content)
{
    if (!is_replaceable(path))
        throw_file_error(path);
    Beside file(path);
    if (!file.write(content) || !file.take_place_of(path))
        throw_file_error(path);
}
