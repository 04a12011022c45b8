#include "va/descriptor_limit.h"

#include "va/log.h"

#include <algorithm>

#include <sys/resource.h>
#include <sys/select.h>

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
