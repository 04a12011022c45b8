#include "event/event.h"
#include "ipc/network/fd.h"
#include "tests/support/event_failing_new.h"
#include "tests/support/wait.h"

#include <algorithm>
#include <csignal>
#include <ctime>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/select.h>
#include <unistd.h>

namespace
{

constexpr std::int64_t second = 1'000'000; // microseconds
constexpr int endless = -1;

// The loop's clock stands still, except that a wait moves it on instead of passing.
struct VirtualClock {
    timeval in(std::int64_t us) const
    {
        const std::int64_t time = now + us; // a clock of 32 bits wraps
        return {static_cast<time_t>(time / second), static_cast<suseconds_t>(time % second)};
    }

    std::int64_t now = std::int64_t{std::time(nullptr)} * second;
    std::int64_t step = 0;  // by which somebody sets the clock during the next wait
    std::vector<int> waits; // of each cycle, ms
};

std::optional<VirtualClock> virtual_clock; // without one the machine's clock serves

} // namespace

// These two stand in front of the C library's.

extern "C" int gettimeofday(timeval *now, void *) noexcept
{
    timespec time;
    clock_gettime(CLOCK_REALTIME, &time);
    *now = virtual_clock ? virtual_clock->in(0) : timeval{time.tv_sec, time.tv_nsec / 1000};
    return 0;
}

extern "C" int select(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout)
{
    timespec limit{};
    if (timeout && !virtual_clock)
        limit = {timeout->tv_sec, timeout->tv_usec * 1000};
    const bool may_block = !timeout && !virtual_clock;
    const int ready = pselect(count, read, write, except, may_block ? nullptr : &limit, nullptr);
    if (virtual_clock) {
        const std::int64_t us = timeout ? timeout->tv_sec * second + timeout->tv_usec : 0;
        virtual_clock->waits.push_back(timeout ? static_cast<int>(us / 1000) : endless);
        virtual_clock->now += (ready == 0 ? us : 0) + std::exchange(virtual_clock->step, 0);
    }
    return ready;
}

namespace
{

using Action = std::function<void(event_info *)>;

std::int32_t run(event_info *info, void *action)
{
    (*static_cast<Action *>(action))(info);
    return -1;
}

class EventLoop : public testing::Test
{
protected:
    EventLoop() { virtual_clock.emplace(); }
    ~EventLoop() override
    {
        drop_all();
        add_always_event(EVENT_ONESHOT, run, notes(""));
        event_loop(1); // frees them
    }

    Action *does(Action action) { return &actions.emplace_back(std::move(action)); }
    Action *notes(const char *name)
    {
        return does([this, name](event_info *) { log += name; });
    }

    // Keeps an event for drop() or the end of the test.
    event *keep(event *event) { return kept.emplace_back(event); }
    void drop(event *event)
    {
        remove_event(event);
        std::erase(kept, event);
    }
    void drop_all()
    {
        while (!kept.empty())
            drop(kept.back());
    }
    // Keeps an event that is due in every cycle().
    event *add(int kind, Action *action)
    {
        if (kind == EVENT_TIMER)
            return keep(add_timer_event(10, 0, run, action));
        if (kind == EVENT_ALWAYS)
            return keep(add_always_event(0, run, action));
        return keep(add_fd_event(ready.get(), 1, 0, run, action));
    }
    void add_alarm(std::int64_t ms)
    {
        const timeval when = virtual_clock->in(ms * 1000 + 500); // rounds to ms ahead
        keep(add_alarm_event(&when, 0, run, does([this](event_info *info) {
            log += 'l';
            std::erase(kept, info->event);
        })));
    }
    // Runs one; returns the names of the callbacks.
    std::string cycle()
    {
        log.clear();
        virtual_clock->now += 10'000;
        EXPECT_EQ(event_loop(1), 1);
        return log;
    }

    const Fd ready{open("/dev/null", O_RDWR | O_CLOEXEC)};
    std::string log;
    std::deque<Action> actions;
    std::vector<event *> kept;
};

TEST(Time, DifferencesRoundAndWrapAndAdditionsCarry)
{
    struct Span {
        timeval from, to;
        int ms;
    };
    for (const auto &[from, to, ms] :
         {Span{{5, 0}, {5, 1499}, 1}, Span{{5, 0}, {5, 1500}, 2}, Span{{5, 1499}, {5, 0}, 0},
          Span{{5, 1500}, {5, 0}, -1}, Span{{5, 0}, {2153, 0}, -2'146'966},
          Span{{INT32_MAX, 0}, {INT32_MIN, 0}, 1000}}) // the end of a 32-bit clock
        EXPECT_EQ(time_diff(&from, &to), ms);
    for (auto [from, to, ms] : {Span{{5, 999'000}, {6, 0}, 1}, Span{{5, 998'999}, {5, 999'999}, 1},
                                Span{{5, 600'000}, {67, 100'000}, 61'500}}) {
        time_add(&from, ms);
        EXPECT_EQ(std::pair(from.tv_sec, from.tv_usec), std::pair(to.tv_sec, to.tv_usec));
    }
}

// Each addition is first tried with no memory left.
TEST_F(EventLoop, CallsNewestFirstTimersThenAlwaysThenDescriptors)
{
    const Fd last(dup2(ready.get(), 1023));
    const timeval past{};
    const auto note = [this](char name, int type) {
        return does([this, name, type](event_info *info) {
            log += name;
            EXPECT_EQ(info->type, type);
        });
    };
    for (const char *n : {"falt", "FALT"}) {
        const std::function<event *()> additions[] = {
            [&] { return add_fd_event(last.get(), 1, EVENT_ONESHOT, run, note(n[0], EVENT_FD)); },
            [&] { return add_always_event(EVENT_ONESHOT, run, note(n[1], EVENT_ALWAYS)); },
            [&] { return add_alarm_event(&past, 0, run, note(n[2], EVENT_TIMER)); },
            [&] { return add_timer_event(10, EVENT_ONESHOT, run, note(n[3], EVENT_TIMER)); },
        };
        for (const auto &addition : additions)
            EXPECT_EQ(fail_each_allocation([&] { return addition() != nullptr; }), 1);
    }
    for (const int fd : {-1, 1024, INT32_MAX})
        EXPECT_EQ(add_fd_event(fd, 0, 0, run, nullptr), nullptr);
    EXPECT_EQ(cycle(), "TLtlAaFf");
    EXPECT_EQ(cycle(), "") << "they were to be called once";
}

TEST_F(EventLoop, WaitsUntilTheFirstDueTime)
{
    using Alarms = std::vector<int>; // ms ahead
    for (const auto &[alarms, wait, called] :
         {std::tuple(Alarms{}, endless, ""), std::tuple(Alarms{4}, 0, "l"),
          std::tuple(Alarms{5}, 5, "l"), std::tuple(Alarms{1500, 700, 900}, 700, "l"),
          std::tuple(Alarms{10, 9, 70}, 9, "ll")}) {
        log.clear();
        for (const int ms : alarms)
            add_alarm(ms);
        event_loop(1);
        EXPECT_EQ(virtual_clock->waits.back(), wait);
        EXPECT_EQ(log, called);
        drop_all();
    }
    add_alarm(5);
    add(EVENT_ALWAYS, notes(""));
    event_loop(1);
    EXPECT_EQ(virtual_clock->waits.back(), 0);
}

TEST_F(EventLoop, TimersKeepTheirBeatUntilACallbackMovesThem)
{
    const timeval due = virtual_clock->in(100'000);
    const timeval later = virtual_clock->in(900'000);
    event *timer = keep(add_timer_event(100, EVENT_ENABLED, run, notes("")));
    for (const int late : {0, 0, 350, 0, 0, 0}) { // one call a cycle makes up for it
        virtual_clock->now += late * 1000;
        event_loop(1);
    }
    drop(timer);
    keep(add_timer_event(100, 0, run,
                         does([](event_info *info) { set_event_interval(info->event, 50); })));
    event_loop(1);
    event_loop(1);
    drop_all();
    keep(add_alarm_event(&due, 0, run,
                         does([&](event_info *info) { resched_event(info->event, &later); })));
    event_loop(1);
    event_loop(1);
    // Each wait is cut to whole ms; the due times stay on the beat.
    EXPECT_EQ(virtual_clock->waits, (std::vector{99, 100, 0, 0, 0, 50, 99, 150, 0, 51}));
}

TEST_F(EventLoop, ChangesWhileDispatching)
{
    for (const int kind : {EVENT_TIMER, EVENT_ALWAYS, EVENT_FD}) {
        SCOPED_TRACE(kind);
        drop(add(kind, notes("dropped before it joined")));
        event *removed = add(kind, notes("removed"));
        event *disabled = add(kind, notes("d"));
        add(kind, does([&](event_info *info) {
                log += "c";
                drop(removed);
                set_event_enabled(disabled, 0);
                add(kind, notes("n"));
                drop(info->event);
            }));
        EXPECT_EQ(cycle(), "cd");
        EXPECT_EQ(cycle(), "n");
        set_event_enabled(disabled, 1);
        EXPECT_EQ(cycle(), "nd");
        drop_all();
    }
}

TEST_F(EventLoop, DescriptorsWaitInOneDirection)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    const Fd read_end(ends[0]);
    Fd write_end(ends[1]);
    keep(add_fd_event(ends[0], 0, 0, run, notes("r")));
    keep(add_fd_event(ends[0], 0, 0, run, notes("R")));
    keep(add_fd_event(ends[1], -1, 0, run, notes("w")));
    EXPECT_EQ(cycle(), "w");
    while (write(ends[1], "x", 1) == 1) {
    }
    EXPECT_EQ(cycle(), "Rr");
    add(EVENT_TIMER, notes("t"));
    write_end.reset();
    EXPECT_EQ(cycle(), "t") << "the wait failed, so none is known to be ready";
}

TEST_F(EventLoop, ExitEndsTheCycleAndALaterCallResumes)
{
    for (const int kind : {EVENT_TIMER, EVENT_ALWAYS, EVENT_FD}) {
        add(EVENT_FD, notes("f"));
        add(EVENT_ALWAYS, notes("a"));
        add(EVENT_TIMER, notes("t"));
        add(kind, does([&](event_info *info) {
                exit_event_loop();
                drop(info->event);
            }));
        log.clear();
        virtual_clock->now += 10'000;
        exit_event_loop(); // no loop runs: forgotten
        EXPECT_NE(event_loop(0), 0);
        EXPECT_EQ(log, kind == EVENT_TIMER ? "" : kind == EVENT_ALWAYS ? "t" : "ta");
        EXPECT_EQ(cycle(), "taf");
        drop_all();
    }
}

// A step neither silences the timer nor makes it fire for longer than the periods it made due.
TEST_F(EventLoop, ClockSteps)
{
    for (const std::int64_t step : {-3600, -600, 10, 4000, 20 * 365 * 86400}) {
        for (const bool in_wait : {false, true}) {
            SCOPED_TRACE(step);
            std::vector<int> &waits = virtual_clock->waits;
            const int replays = step == 10 ? 100 : 0;
            int calls = 0;
            keep(add_timer_event(100, 0, run, does([&](event_info *) { ++calls; })));
            event_loop(1);
            add_alarm(10'000);
            (in_wait ? virtual_clock->step : virtual_clock->now) += step * second;
            waits.clear();
            log.clear();
            for (int i = 0; i < replays + 5; ++i)
                event_loop(1);
            EXPECT_GE(calls, replays + 4);
            EXPECT_LE(std::ranges::count(waits, 0), replays + 2);
            EXPECT_LE(std::ranges::max(waits), 100);
            EXPECT_GE(std::ranges::min(waits), 0);
            EXPECT_TRUE(log == "l" || (step != 10 && step != 4000));
            drop_all();
        }
    }
}

TEST_F(EventLoop, SignalEndsAWaitWithoutLimit)
{
    virtual_clock.reset();
    std::signal(SIGUSR1, [](int) { exit_event_loop(); });
    std::atomic<bool> ended{false};
    std::jthread loop([&] {
        event_loop(0);
        ended = true;
    });
    EXPECT_TRUE(wait_until([&] { // again, since the first may come before the loop runs
        pthread_kill(loop.native_handle(), SIGUSR1);
        return ended.load();
    }));
}

TEST_F(EventLoop, OtherThreadsAddEnableAndExit)
{
    constexpr int rounds = 500;
    virtual_clock.reset();
    std::atomic<int> served{0};
    std::atomic<int> enabled{0};
    Action *const serve = does([&](event_info *) { ++served; });
    add(EVENT_ALWAYS, notes("")); // keeps the loop spinning
    event *switched = add(EVENT_FD, does([&](event_info *info) {
                              set_event_enabled(info->event, 0);
                              ++enabled;
                          }));
    std::jthread loop([] { event_loop(0); });
    std::jthread adder([&] {
        for (int i = 0; i < rounds; ++i) {
            add_fd_event(ready.get(), 1, EVENT_ONESHOT, run, serve);
            add_always_event(EVENT_ONESHOT, run, serve);
            add_timer_event(1, EVENT_ONESHOT, run, serve);
        }
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    for (int n = 1; n <= rounds; ++n) { // a bit that got lost would end the exchange
        while (enabled < n && std::chrono::steady_clock::now() < end)
            std::this_thread::yield();
        set_event_enabled(switched, 1);
    }
    EXPECT_GE(enabled, rounds);
    EXPECT_TRUE(wait_until([&] { return served == 3 * rounds; }));
    exit_event_loop();
}

} // namespace
