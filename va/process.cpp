#include "va/process.h"

#include "util/guarded.h"
#include "va/log.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string_view>

#include <pthread.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

int terminate;

void sig1_handler(int)
{
    constexpr std::string_view line = "sig1_handler terminate = 1\n";
    const int error = errno;
    // Before the line, which a terminal may hold up.
    va::shared(terminate) = 1;
    exit_event_loop();
    va::write_output(STDOUT_FILENO, line.data(), line.size());
    errno = error;
}

std::int32_t null_timer(event_info *, void *)
{
    return 0;
}

namespace va
{

int hangup;

void sighup_handler(int)
{
    shared(hangup) = 1;
}

void block_sighup(bool block)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGHUP);
    pthread_sigmask(block ? SIG_BLOCK : SIG_UNBLOCK, &set, nullptr);
}

std::int32_t stop_if_requested(event_info *, void *)
{
    if (load_shared(terminate))
        exit_event_loop();
    return 0;
}

void raise_descriptor_limit()
{
    constexpr rlim_t own = 64;
    constexpr rlim_t wanted = FD_SETSIZE + own;
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= wanted)
        return;
    limit.rlim_cur = std::min(limit.rlim_max, wanted);
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur < wanted)
        log_error("The limit of descriptors is below %lu: clients can take the last one.",
                  static_cast<unsigned long>(wanted));
}

bool is_trusted(const struct stat &status)
{
    return status.st_uid == 0 || status.st_uid == geteuid();
}

} // namespace va
