#include "event/event.h"

#include <vector>

#include <benchmark/benchmark.h>
#include <sys/eventfd.h>
#include <unistd.h>

// What a cycle of the event loop costs, without and with ready descriptors.

namespace
{

std::int32_t count_call(event_info *, void *arg)
{
    ++*static_cast<std::int64_t *>(arg);
    return 0;
}

// One cycle that does not wait: an always event stays on the loop.
void cycle()
{
    static event *const never_wait = add_always_event(
        0, [](event_info *, void *) { return 0; }, nullptr);
    benchmark::DoNotOptimize(never_wait);
    event_loop(1);
}

// Descriptor events on the loop, each readable from the start when `readable`.
class Descriptors
{
public:
    Descriptors(std::int64_t count, bool readable)
    {
        for (std::int64_t i = 0; i < count; ++i) {
            fds_.push_back(eventfd(readable, EFD_NONBLOCK | EFD_CLOEXEC));
            events_.push_back(add_fd_event(fds_.back(), 0, 0, count_call, &calls));
        }
        cycle();
        calls = 0;
    }
    ~Descriptors()
    {
        for (event *event : events_)
            remove_event(event);
        cycle();
        for (const int fd : fds_)
            close(fd);
    }
    Descriptors(const Descriptors &) = delete;
    Descriptors &operator=(const Descriptors &) = delete;

    std::int64_t calls = 0;

private:
    std::vector<int> fds_;
    std::vector<event *> events_;
};

void run_cycles(benchmark::State &state, bool readable)
{
    Descriptors descriptors(state.range(0), readable);
    for ([[maybe_unused]] auto iteration : state)
        cycle();
    state.counters["callbacks/cycle"] =
        static_cast<double>(descriptors.calls) / static_cast<double>(state.iterations());
    if (readable)
        state.counters["per_callback"] =
            benchmark::Counter(static_cast<double>(descriptors.calls),
                               benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void idle_cycle(benchmark::State &state)
{
    run_cycles(state, false);
}

void dispatching_cycle(benchmark::State &state)
{
    run_cycles(state, true);
}

BENCHMARK(idle_cycle)->Arg(4)->Arg(64)->Arg(400);
BENCHMARK(dispatching_cycle)->Arg(4)->Arg(64)->Arg(400);

} // namespace
