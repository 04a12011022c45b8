#include "va/run_dir.h"

#include "va/paths.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace
{

struct Entry {
    const char *path;
    mode_t kind;
};

constexpr Entry entries[] = {
    {va_run_dir, S_IFDIR},  {va_pid_path, S_IFREG},  {va_ctrl_path, S_IFIFO},
    {va_od_path, S_IFSOCK}, {va_vmf_path, S_IFSOCK}, {va_fd_path, S_IFSOCK},
    {va_ta_path, S_IFSOCK},
};

// Null when there is nothing wrong.
const char *fault(const struct stat &status, mode_t kind)
{
    if (S_ISLNK(status.st_mode))
        return "is a link";
    if ((status.st_mode & S_IFMT) != kind)
        return "is of the wrong kind";
    if (status.st_uid != 0 && status.st_uid != geteuid())
        return "belongs to another user";
    return status.st_mode & S_IWOTH ? "is writable for others" : nullptr;
}

std::string all_faults()
{
    std::string faults;
    for (const auto &[path, kind] : entries) {
        struct stat status;
        const char *const found = lstat(path, &status) == 0 ? fault(status, kind) : nullptr;
        if (found)
            faults += std::string(faults.empty() ? "" : ", ") + path + " " + found;
    }
    return faults;
}

} // namespace

void check_run_dir()
{
    if (access(va_run_dir, F_OK) != 0) {
        syslog(LOG_ERR,
               "%s: %s. So there is no PID file, and no hand-over from one instance to the next. "
               "Make the directory before va starts.",
               va_run_dir, std::strerror(errno));
        return;
    }
    const std::string faults = all_faults();
    if (!faults.empty())
        syslog(LOG_ERR,
               "Unsafe: %s. Make %s anew before va starts: owned by its user, not writable for "
               "others.",
               faults.c_str(), va_run_dir);
}
