#include "video/progress.h"

#include "video/say.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include <unistd.h>

void Progress::show(const Reader::State &reader, int looks)
{
    constexpr double terminal_interval = 1; // seconds
    constexpr double log_interval = 10;
    constexpr double seconds_of_minute = 60;
    const bool terminal = isatty(STDERR_FILENO);
    const double passed = std::chrono::duration<double>(Clock::now() - shown_).count();
    if (reader.total == 0 || passed < (terminal ? terminal_interval : log_interval))
        return;
    const double rate = (reader.all - all_) / passed;
    const double left = rate > 0 ? std::max(reader.total - reader.read, 0) / rate : 0;
    const int minutes = static_cast<int>(left / seconds_of_minute);
    std::fprintf(stderr, "%sva_video: frame %d of %d, %.0f looks/s, %d:%02d left%s",
                 terminal ? "\r" : "", reader.read, reader.total, (looks - looks_) / passed,
                 minutes, static_cast<int>(left) % 60, terminal ? "\033[K" : "\n");
    open_ = terminal;
    shown_ = Clock::now();
    looks_ = looks;
    all_ = reader.all;
}

void Progress::end_line()
{
    if (open_)
        std::fputc('\n', stderr);
    open_ = false;
}
