#include "va/run_dir.h"

#include "va/paths.h"
#include "va/streams.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace
{

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

// A sentence; empty when there is nothing wrong, or nothing at all.
std::string fault_of(const char *path, mode_t kind)
{
    struct stat status;
    const char *const found = lstat(path, &status) == 0 ? fault(status, kind) : nullptr;
    return found ? std::string(path) + " " + found + ". " : "";
}

std::string all_faults()
{
    std::string faults = fault_of(va_run_dir, S_IFDIR) + fault_of(va_pid_path, S_IFREG) +
                         fault_of(va_ctrl_path, S_IFIFO);
    for (const VaStream &stream : va_streams)
        faults += fault_of(stream.path, S_IFSOCK);
    return faults;
}

} // namespace

void check_run_dir()
{
    if (access(va_run_dir, F_OK) != 0) {
        syslog(LOG_ERR,
               "%s: %s. There is no PID file, and no hand-over from one instance to the next. Make "
               "the directory before va starts.",
               va_run_dir, std::strerror(errno));
        return;
    }
    const std::string faults = all_faults();
    if (!faults.empty())
        syslog(LOG_ERR,
               "%sMake %s anew before va starts: owned by the user of va, not writable for others.",
               faults.c_str(), va_run_dir);
}
