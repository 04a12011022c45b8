#include "va/signals.h"

#include "util/guarded.h"
#include "va/output.h"

#include <cerrno>
#include <csignal>
#include <string_view>

#include <pthread.h>
#include <unistd.h>

int terminate;
int hangup;

void sig1_handler(int)
{
    constexpr std::string_view line = "sig1_handler terminate = 1\n";
    const int error = errno;
    // Before the line, for which a terminal may let it wait.
    va::shared(terminate) = 1;
    exit_event_loop();
    write_output(STDOUT_FILENO, line.data(), line.size());
    errno = error;
}

void sighup_handler(int)
{
    va::shared(hangup) = 1;
}

void block_sighup(bool block)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGHUP);
    pthread_sigmask(block ? SIG_BLOCK : SIG_UNBLOCK, &set, nullptr);
}

std::int32_t null_timer(event_info *, void *)
{
    return 0;
}

std::int32_t stop_if_requested(event_info *, void *)
{
    if (va::load_shared(terminate))
        exit_event_loop();
    return 0;
}
