#include "bench/median.h"
#include "event/event.h"

#include <algorithm>
#include <ctime>
#include <vector>

#include <benchmark/benchmark.h>
#include <event2/event.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <unistd.h>

// What a cycle of the event loop costs, without and with ready descriptors, beside a plain select()
// on the same descriptors (the sets built, one call, and a callback for each that is ready) and
// beside a cycle of libevent on select(). They take turns, so that they see the same machine;
// processor time is what is measured.

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
            peers_.push_back(event_new(base_, fds_.back(), EV_READ | EV_PERSIST, count_peer_call,
                                       &libevent_calls));
            event_add(peers_.back(), nullptr);
        }
        cycle();
        calls = 0;
    }
    ~Descriptors()
    {
        for (event *waiting : events_)
            remove_event(waiting);
        cycle();
        std::ranges::for_each(peers_, event_free);
        event_base_free(base_);
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

    void libevent_cycle() { event_base_loop(base_, EVLOOP_ONCE | EVLOOP_NONBLOCK); }

    std::int64_t calls = 0;
    std::int64_t plain_calls = 0;
    std::int64_t libevent_calls = 0;

private:
    static event_base *select_base()
    {
        event_config *const config = event_config_new();
        event_config_avoid_method(config, "epoll");
        event_config_avoid_method(config, "poll");
        event_base *const base = event_base_new_with_config(config);
        event_config_free(config);
        return base;
    }
    static void count_peer_call(evutil_socket_t, short, void *arg)
    {
        ++*static_cast<std::int64_t *>(arg);
    }

    event_base *base_ = select_base();
    std::vector<struct event *> peers_;
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

// The time shown is that of a batch; the counters are of a cycle, the median of all batches'.
void run_cycles(benchmark::State &state, bool readable)
{
    Descriptors descriptors(state.range(0), readable);
    std::vector<double> loop;
    std::vector<double> plain;
    std::vector<double> libevent;
    for ([[maybe_unused]] auto iteration : state) {
        loop.push_back(seconds_of(cycle));
        plain.push_back(seconds_of([&] { descriptors.plain_select(); }));
        libevent.push_back(seconds_of([&] { descriptors.libevent_cycle(); }));
        state.SetIterationTime(loop.back());
    }
    if (descriptors.calls != descriptors.plain_calls ||
        descriptors.calls != descriptors.libevent_calls)
        state.SkipWithError("they served different numbers of descriptors");
    state.counters["ns"] = median(loop) * 1e9 / batch;
    state.counters["plain_ns"] = median(plain) * 1e9 / batch;
    state.counters["libevent_ns"] = median(libevent) * 1e9 / batch;
    state.counters["ours/plain"] = median(loop) / median(plain);
    state.counters["ours/libevent"] = median(loop) / median(libevent);
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
