#include "va/run_watch.h"

#include "event/loop.h"
#include "va/log.h"
#include "va/paths.h"
#include "va/pid_file.h"
#include "va/streams.h"

#include <array>
#include <cstdio>
#include <iterator>
#include <optional>
#include <utility>

#include <sys/stat.h>

namespace
{

constexpr int look_ms = 1000;

using Identity = std::pair<dev_t, ino_t>;

// Nothing when nothing is there.
std::optional<Identity> identity_of(const char *path)
{
    struct stat status;
    if (lstat(path, &status) != 0)
        return {};
    return Identity(status.st_dev, status.st_ino);
}

bool is_fifo(const char *path)
{
    struct stat status;
    return lstat(path, &status) == 0 && S_ISFIFO(status.st_mode);
}

struct Made {
    const char *path;
    std::optional<Identity> identity;
};

std::array<Made, 3 + std::size(va_streams)> all_made;
bool has_pid_file;
char fault[160];

// Null when all stand where they were made.
const Made *first_missing()
{
    for (const Made &made : all_made) {
        if (made.identity && identity_of(made.path) != made.identity)
            return &made;
    }
    return nullptr;
}

std::int32_t look(event_info *, void *)
{
    const bool told = *fault != '\0';
    fault[0] = '\0';
    if (const Made *const missing = first_missing())
        std::snprintf(fault, sizeof fault, "%s %s", missing->path,
                      identity_of(missing->path) ? "is another one" : "is gone");
    else if (has_pid_file && !is_own_pid_file())
        std::snprintf(fault, sizeof fault, "%s names another process", va_pid_path);
    if (*fault && !told)
        log_error("%s: clients do not find this daemon any more. Start it again.", fault);
    return 0;
}

} // namespace

bool watch_run_dir(const VaContext &context)
{
    auto *made = all_made.begin();
    const auto add = [&](const char *path) { *made++ = {path, identity_of(path)}; };
    add(va_run_dir);
    has_pid_file = is_own_pid_file();
    if (has_pid_file)
        add(va_pid_path);
    if (is_fifo(va_ctrl_path))
        add(va_ctrl_path);
    for (const VaStream &stream : va_streams) {
        if (context.*stream.server)
            add(stream.path);
    }
    return add_timer_event(look_ms, EVENT_ENABLED, look, nullptr);
}

const char *run_dir_fault()
{
    return fault;
}
