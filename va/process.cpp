#include "va/process.h"

#include <cerrno>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

std::atomic<int> terminate{0};
static_assert(std::atomic<int>::is_always_lock_free, "written by a signal handler");

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
