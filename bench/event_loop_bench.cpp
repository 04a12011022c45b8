#include "event/event.h"

#include <ctime>
#include <vector>

#include <benchmark/benchmark.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <unistd.h>

// What a cycle of the event loop costs, without and with ready descriptors, beside a plain select()
// on the same descriptors: the sets built, one call, and a callback for each that is ready. The two
// take turns, so that both see the same machine; processor time is what is measured.

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
        for (event *waiting : events_)
            remove_event(waiting);
        cycle();
        for (const int fd : fds_)
            close(fd);
    }
    Descriptors(const Descriptors &) = delete;
    Descriptors &operator=(const Descriptors &) = delete;

    void plain_select()
    {
        fd_set read;
        fd_set write;
        FD_ZERO(&read);
        FD_ZERO(&write);
        for (const int fd : fds_)
            FD_SET(fd, &read);
        timeval at_once{};
        if (select(fds_.back() + 1, &read, &write, nullptr, &at_once) <= 0)
            return;
        event_callback callback = count_call;
        benchmark::DoNotOptimize(callback); // called through the pointer
        for (const int fd : fds_) {
            if (FD_ISSET(fd, &read))
                callback(nullptr, &plain_calls);
        }
    }

    std::int64_t calls = 0;
    std::int64_t plain_calls = 0;

private:
    std::vector<int> fds_;
    std::vector<event *> events_;
};

double processor_seconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

constexpr int batch = 100; // cycles between two looks at the clock

template <class Action>
double seconds_of(Action action)
{
    const double start = processor_seconds();
    for (int i = 0; i < batch; ++i)
        action();
    return processor_seconds() - start;
}

// The time shown is that of a batch; the counters are per cycle.
void run_cycles(benchmark::State &state, bool readable)
{
    Descriptors descriptors(state.range(0), readable);
    double loop = 0;
    double plain = 0;
    for ([[maybe_unused]] auto iteration : state) {
        const double seconds = seconds_of(cycle);
        plain += seconds_of([&] { descriptors.plain_select(); });
        loop += seconds;
        state.SetIterationTime(seconds);
    }
    if (descriptors.calls != descriptors.plain_calls)
        state.SkipWithError("the two served different numbers of descriptors");
    const double cycles = batch * static_cast<double>(state.iterations());
    state.counters["loop_ns"] = loop * 1e9 / cycles;
    state.counters["plain_ns"] = plain * 1e9 / cycles;
    state.counters["loop/plain"] = loop / plain;
    state.counters["callbacks"] = static_cast<double>(descriptors.calls) / cycles;
}

void idle_cycle(benchmark::State &state)
{
    run_cycles(state, false);
}

void dispatching_cycle(benchmark::State &state)
{
    run_cycles(state, true);
}

BENCHMARK(idle_cycle)->Arg(4)->Arg(64)->Arg(400)->UseManualTime();
BENCHMARK(dispatching_cycle)->Arg(4)->Arg(64)->Arg(400)->UseManualTime();

} // namespace
