#include "va/pid_file.h"

#include "util/fd.h"
#include "util/guarded.h"
#include "util/text.h"
#include "util/util.h"
#include "va/log.h"
#include "va/paths.h"
#include "va/process.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace
{

// In the place of a process number.
constexpr pid_t no_process = 0;
constexpr pid_t unknown = -1; // there is a file, but it cannot be read

struct Recorded {
    pid_t process;
    bool trusted; // the file is this user's or root's

    bool operator==(const Recorded &) const = default;
};

// The right to replace the PID file, held briefly: of two that start at once and see the same stale
// file, the slower would else remove what the faster has put in its place.
class Lock
{
public:
    Lock() : file_(open(va_pid_lock_path, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600))
    {
        struct stat status;
        if (!file_ || fstat(file_.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
            !va::is_trusted(status)) // no lock is possible
            return;
        held_ = flock(file_.get(), LOCK_EX | LOCK_NB) == 0 && is_in_place();
        busy_ = !held_;
    }
    ~Lock()
    {
        if (held_)
            unlink(va_pid_lock_path);
    }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

    bool busy() const { return busy_; }

private:
    // The one that had the lock before may have removed it meanwhile.
    bool is_in_place() const
    {
        struct stat locked;
        struct stat present;
        return fstat(file_.get(), &locked) == 0 && lstat(va_pid_lock_path, &present) == 0 &&
               locked.st_dev == present.st_dev && locked.st_ino == present.st_ino;
    }

    Fd file_;
    bool held_ = false;
    bool busy_ = false;
};

bool is_alive(pid_t process)
{
    return kill(process, 0) == 0 || errno != ESRCH;
}

// The process that the text names: one decimal number and nothing else. The kill command is given
// the text as it is, so neither an option nor a second number may pass.
pid_t parse_process(std::string_view text)
{
    if (text.ends_with('\n'))
        text.remove_suffix(1);
    return std::max(va::number_in<pid_t>(text).value_or(no_process), no_process);
}

Recorded recorded()
{
    const Fd file(open(va_pid_path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file)
        return {errno == ELOOP || errno == ENXIO ? no_process : unknown, false}; // a link, a socket
    struct stat status;
    if (fstat(file.get(), &status) != 0)
        return {unknown, false};
    if (!S_ISREG(status.st_mode))
        return {no_process, false};
    char text[32];
    const ssize_t length = read(file.get(), text, sizeof text);
    if (length < 0)
        return {unknown, false};
    const std::size_t size = static_cast<std::size_t>(length);
    return {size < sizeof text ? parse_process({text, size}) : no_process, va::is_trusted(status)};
}

// Asks an instance to stop, if it may be asked, and gives it a second.
void wait_for(const Recorded &old)
{
    va::log_error("==> Warning: Old process is not stop. Waiting now.");
    if (old.process > 0 && old.trusted) {
        [[maybe_unused]] const int status = std::system(va_stop_command);
    }
    sleep(1);
    if (va::load_shared(terminate))
        std::exit(0);
}

// Whether the file still says the same, and names no other living process.
bool is_stale(const Recorded &old)
{
    if (old.process == unknown || recorded() != old)
        return false;
    return old.process == no_process || old.process == getpid() || !is_alive(old.process);
}

// Returns false after a log line when a stale file stays.
bool remove_if_stale(const Recorded &old)
{
    const Lock lock;
    if (lock.busy() || !is_stale(old))
        return true;
    const bool removed = unlink(va_pid_path) == 0;
    va::log_error("%s is stale: it names no other living process. %s", va_pid_path,
                  removed ? "Removed it." : "It cannot be removed: there is no PID file.");
    return removed;
}

enum class Claim { Written, Taken, Failed };

bool did_not_fit; // the last claim's file

// Makes the PID file, unless there is one.
Claim claim_pid_file()
{
    const Lock lock;
    struct stat status; // works without a free descriptor, too
    if (lock.busy() || lstat(va_pid_path, &status) == 0)
        return Claim::Taken;
    const Fd file(open(va_pid_path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!file && errno == EEXIST)
        return Claim::Taken;
    const bool no_room = !file && (errno == ENOSPC || errno == EDQUOT);
    if (file_printf(va_pid_path, "%d", getpid()) == 0)
        return Claim::Written;
    if (file)
        unlink(va_pid_path);
    if ((file || no_room) && !std::exchange(did_not_fit, true))
        va::log_error("%s cannot be written whole: there is no PID file.", va_pid_path);
    return Claim::Failed;
}

} // namespace

int create_pid_file()
{
    if (va::load_shared(terminate))
        std::exit(0);
    Claim claim = claim_pid_file();
    for (; claim == Claim::Taken; claim = claim_pid_file()) {
        const Recorded old = recorded();
        // Left by a process of an earlier boot it may be this one's, which a signal would end.
        if (old.process != getpid())
            wait_for(old);
        if (!remove_if_stale(old))
            return -1;
    }
    return claim == Claim::Written ? 0 : -1;
}

namespace va
{

bool is_own_pid_file()
{
    return recorded().process == getpid();
}

bool retry_pid_file()
{
    if (!did_not_fit)
        return false;
    // Each try would write. Inodes do not tell: some file systems count none.
    struct statvfs room;
    if (statvfs(va_run_dir, &room) == 0 && room.f_bavail == 0)
        return false;
    if (claim_pid_file() != Claim::Written)
        return false;
    did_not_fit = false;
    log_error("%s is there now.", va_pid_path);
    return true;
}

void remove_own_pid_file()
{
    if (is_own_pid_file())
        unlink(va_pid_path);
}

} // namespace va
