#include "va/process.h"

#include "util/util.h"
#include "va/open_file.h"
#include "va/paths.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string_view>

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

std::atomic<int> terminate{0};
static_assert(std::atomic<int>::is_always_lock_free, "written by a signal handler");

namespace
{

bool pid_file_written = false;

// The process that the PID file names; 0 when it names none.
pid_t recorded_process()
{
    const File file = open_file(va_pid_path);
    char text[32] = "";
    if (!file || !std::fgets(text, sizeof text, file.get()))
        return 0;
    const long number = std::strtol(text, nullptr, 10);
    return number > 0 && number <= std::numeric_limits<pid_t>::max() ? static_cast<pid_t>(number)
                                                                     : 0;
}

bool exists(pid_t process)
{
    return kill(process, 0) == 0 || errno != ESRCH;
}

// Asks the instance that the file names to stop, and gives it a second. Returns false when there is
// no such instance.
bool stop_old_process()
{
    const pid_t old = recorded_process();
    if (old == getpid()) // left by a process of an earlier boot; signalling it would end this one
        return false;
    syslog(LOG_ERR, "==> Warning: Old process is not stop. Waiting now.");
    [[maybe_unused]] const int status = std::system(va_kill_command);
    sleep(1);
    if (terminate)
        std::exit(0);
    return recorded_process() != old || (old != 0 && exists(old));
}

} // namespace

void sig1_handler(int)
{
    constexpr std::string_view line = "sig1_handler terminate = 1\n";
    const int error = errno;
    [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, line.data(), line.size());
    terminate = 1;
    exit_event_loop();
    errno = error;
}

void open_standard_descriptors()
{
    int fd = 0;
    do {
        fd = open("/dev/null", O_RDWR); // without O_CLOEXEC: a child's standard descriptors too
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd > STDERR_FILENO)
        close(fd);
}

int create_pid_file()
{
    if (terminate)
        std::exit(0);
    while (access(va_pid_path, F_OK) == 0) {
        if (stop_old_process() || access(va_pid_path, F_OK) != 0)
            continue;
        const bool removed = unlink(va_pid_path) == 0;
        syslog(LOG_ERR, "%s is stale: it names no other process. %s", va_pid_path,
               removed ? "Removed it." : "It cannot be removed.");
        if (!removed)
            break;
    }
    const int result = file_printf(va_pid_path, "%d", getpid());
    pid_file_written = result == 0;
    return result;
}

void remove_own_pid_file()
{
    if (pid_file_written)
        unlink(va_pid_path);
}

std::int32_t null_timer(event_info *, void *)
{
    return 0;
}

std::int32_t stop_if_requested(event_info *, void *)
{
    if (terminate)
        exit_event_loop();
    return 0;
}
