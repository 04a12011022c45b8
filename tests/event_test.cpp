#include "event/event.h"
#include "tests/support/event_failing_new.h"
#include "tests/support/wait.h"

#include <algorithm>
#include <csignal>
#include <ctime>
#include <deque>
#include <functional>
#include <string>
#include <thread>
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

// While one exists the loop's clock stands still, except that a wait moves it on instead of
// passing.
struct VirtualClock {
    VirtualClock();
    ~VirtualClock();
    VirtualClock(const VirtualClock &) = delete;
    VirtualClock &operator=(const VirtualClock &) = delete;

    timeval in(std::int64_t us) const
    {
        const std::int64_t time = now + us; // a clock of 32 bits wraps
        return {static_cast<time_t>(time / second), static_cast<suseconds_t>(time % second)};
    }

    std::int64_t now = std::int64_t{std::time(nullptr)} * second;
    std::int64_t step = 0;  // by which somebody sets the clock during the next wait
    std::vector<int> waits; // of each cycle, ms
};

VirtualClock *virtual_clock;

VirtualClock::VirtualClock()
{
    virtual_clock = this;
}

VirtualClock::~VirtualClock()
{
    virtual_clock = nullptr;
}

} // namespace

// These two stand in front of the C library's.

extern "C" int gettimeofday(timeval *now, void *) noexcept
{
    if (virtual_clock) {
        *now = virtual_clock->in(0);
        return 0;
    }
    timespec time;
    const int result = clock_gettime(CLOCK_REALTIME, &time);
    *now = {time.tv_sec, time.tv_nsec / 1000};
    return result;
}

extern "C" int select(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout)
{
    timespec limit{};
    if (timeout && !virtual_clock)
        limit = {timeout->tv_sec, timeout->tv_usec * 1000};
    const bool may_block = !timeout && !virtual_clock;
    const int ready = pselect(count, read, write, except, may_block ? nullptr : &limit, nullptr);
    if (virtual_clock) {
        const int ms =
            timeout ? static_cast<int>(timeout->tv_sec * 1000 + timeout->tv_usec / 1000) : endless;
        virtual_clock->waits.push_back(ms);
        if (ready == 0 && ms != endless)
            virtual_clock->now += std::int64_t{ms} * 1000;
        virtual_clock->now += std::exchange(virtual_clock->step, 0);
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

struct Pipe {
    Pipe() { EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0); }
    ~Pipe()
    {
        close(read_end);
        close(write_end);
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;

    int ends[2] = {-1, -1};
    const int &read_end = ends[0];
    const int &write_end = ends[1];
};

class EventLoop : public testing::Test
{
protected:
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
    event *keep(event *event)
    {
        EXPECT_NE(event, nullptr);
        return kept.emplace_back(event);
    }
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
        return keep(add_fd_event(pipe.write_end, 1, 0, run, action));
    }
    void add_alarm(std::int64_t ms, const Action &action)
    {
        const timeval when = clock.in(ms * 1000 + 500); // rounds to ms ahead
        keep(add_alarm_event(&when, 0, run, does([this, action](event_info *info) {
            std::erase(kept, info->event);
            action(info);
        })));
    }
    // Runs one; returns the names of the callbacks.
    std::string cycle()
    {
        log.clear();
        clock.now += 10'000;
        EXPECT_EQ(event_loop(1), 1);
        return log;
    }

    static constexpr int kinds[] = {EVENT_TIMER, EVENT_ALWAYS, EVENT_FD};

    VirtualClock clock;
    Pipe pipe; // stays empty: always writable
    std::string log;
    std::deque<Action> actions;
    std::vector<event *> kept;
};

TEST(Time, DifferencesRoundAndWrap)
{
    struct Case {
        timeval from, to;
        int ms;
    };
    for (const auto &[from, to, ms] : {
             Case{{5, 0}, {5, 1499}, 1}, Case{{5, 0}, {5, 1500}, 2},
             Case{{5, 1499}, {5, 0}, 0}, // negative ones are cut
             Case{{5, 1500}, {5, 0}, -1}, Case{{5, 999'999}, {6, 0}, 0},
             Case{{5, 0}, {2152, 0}, 2'147'000}, Case{{5, 0}, {2153, 0}, -2'146'966},
             Case{{INT32_MAX, 0}, {INT32_MIN, 0}, 1000}, // the end of a 32-bit clock
         })
        EXPECT_EQ(time_diff(&from, &to), ms);
}

TEST(Time, AdditionsCarry)
{
    struct Case {
        timeval time;
        int ms;
        timeval sum;
    };
    for (auto [time, ms, sum] :
         {Case{{5, 500'000}, 999, {6, 499'000}}, Case{{5, 999'000}, 1, {6, 0}},
          Case{{5, 998'999}, 1, {5, 999'999}}, Case{{5, 600'000}, 61'500, {67, 100'000}}}) {
        time_add(&time, ms);
        EXPECT_EQ(time.tv_sec, sum.tv_sec);
        EXPECT_EQ(time.tv_usec, sum.tv_usec);
    }
    const VirtualClock clock;
    timeval time;
    time_future(&time, 1500);
    EXPECT_EQ(time_ago(&time), -1499);
}

TEST_F(EventLoop, CallsNewestFirstTimersThenAlwaysThenDescriptors)
{
    const auto note = [&](char name, int type) {
        return does([this, name, type](event_info *info) {
            log += name;
            EXPECT_EQ(info->type, type);
            EXPECT_EQ(info->event->type, type);
            EXPECT_EQ(info->data, 0u);
        });
    };
    const timeval past = clock.in(-1);
    for (const bool old : {true, false}) {
        add_fd_event(pipe.write_end, 1, EVENT_ONESHOT, run, note(old ? 'f' : 'F', EVENT_FD));
        add_always_event(EVENT_ONESHOT, run, note(old ? 'a' : 'A', EVENT_ALWAYS));
        add_timer_event(10, EVENT_ONESHOT, run, note(old ? 't' : 'T', EVENT_TIMER));
        add_alarm_event(&past, 0, run, note(old ? 'l' : 'L', EVENT_TIMER));
    }
    add(EVENT_ALWAYS, notes("+"));
    EXPECT_EQ(cycle(), "LTlt+AaFf");
    EXPECT_EQ(cycle(), "+") << "the others were to be called once";
}

TEST_F(EventLoop, WaitsUntilTheFirstDueTime)
{
    struct Case {
        std::vector<int> alarms; // ms ahead
        bool always;
        int wait;
        std::size_t called;
    };
    for (const Case &c : {Case{{}, false, endless, 0}, Case{{}, true, 0, 0}, Case{{4}, false, 0, 1},
                          Case{{5}, false, 5, 1}, Case{{5}, true, 0, 0},
                          Case{{1500, 700, 900}, false, 700, 1}, Case{{10, 9, 70}, false, 9, 2}}) {
        clock.waits.clear();
        log.clear();
        set_event_enabled(add(EVENT_ALWAYS, notes("")), c.always);
        for (const int ms : c.alarms)
            add_alarm(ms, [this](event_info *) { log += "!"; });
        event_loop(1);
        EXPECT_EQ(clock.waits, std::vector{c.wait});
        EXPECT_EQ(log.size(), c.called);
        drop_all();
    }
}

TEST_F(EventLoop, PeriodicTimerKeepsItsBeat)
{
    const std::int64_t start = clock.now;
    std::vector<std::int64_t> calls; // ms from the start
    keep(add_timer_event(100, EVENT_ENABLED, run,
                         does([&](event_info *) { calls.push_back((clock.now - start) / 1000); })));
    for (int i = 0; i < 2; ++i)
        event_loop(1);
    clock.now += 350'000; // nobody ran the loop: one call a cycle makes up for it
    for (int i = 0; i < 4; ++i)
        event_loop(1);
    // Each wait is cut to whole ms; the due times stay on the beat.
    EXPECT_EQ(calls, (std::vector<std::int64_t>{99, 199, 549, 549, 549, 599}));
    EXPECT_EQ(clock.waits, (std::vector{99, 100, 0, 0, 0, 50}));
}

TEST_F(EventLoop, CallbackSetsItsNextDueTime)
{
    const timeval due = clock.in(100'000);
    const timeval later = clock.in(500'000);
    event *timer = keep(add_timer_event(
        100, 0, run, does([&](event_info *info) { set_event_interval(info->event, 50); })));
    event_loop(1);
    EXPECT_EQ(time_diff(&due, &timer->when), 150) << "the old interval had been added already";
    drop(timer);

    int alarms = 0;
    add_alarm_event(&due, 0, run, does([&](event_info *info) {
        if (++alarms == 1)
            resched_event(info->event, &later);
    }));
    clock.waits.clear();
    for (int i = 0; i < 3; ++i)
        event_loop(1);
    EXPECT_EQ(alarms, 2);
    EXPECT_EQ(clock.waits, (std::vector{0, 400, endless}));
}

TEST_F(EventLoop, ChangesWhileDispatching)
{
    for (const int kind : kinds) {
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
        EXPECT_FALSE(get_event_enabled(disabled));
        set_event_enabled(disabled, 1);
        EXPECT_EQ(cycle(), "nd");
        drop_all();
    }
}

TEST_F(EventLoop, ReopenedDescriptorIsAnotherEvent)
{
    const Pipe other;
    event *old = keep(add_fd_event(other.write_end, 1, 0, run, notes("old")));
    add(EVENT_FD, does([&](event_info *info) {
            drop(old);
            EXPECT_EQ(dup2(info->event->fd, other.write_end), other.write_end); // closes it first
            keep(add_fd_event(other.write_end, 1, 0, run, notes("new")));
            drop(info->event);
        }));
    EXPECT_EQ(cycle(), "");
    EXPECT_EQ(cycle(), "new");
}

TEST_F(EventLoop, DescriptorsWaitInOneDirection)
{
    const Pipe full;
    while (write(full.write_end, "x", 1) == 1) {
    }
    keep(add_fd_event(pipe.read_end, 0, 0, run, notes("nothing to read")));
    keep(add_fd_event(full.write_end, 1, 0, run, notes("no room")));
    keep(add_fd_event(full.read_end, 0, 0, run, notes("r")));
    keep(add_fd_event(full.read_end, 0, 0, run, notes("R")));
    keep(add_fd_event(pipe.write_end, -1, 0, run, notes("w")));
    EXPECT_EQ(cycle(), "wRr");
}

TEST_F(EventLoop, FailedWaitServesNoDescriptor)
{
    add(EVENT_FD, notes("f"));
    add(EVENT_TIMER, notes("t"));
    const int closed = dup(pipe.write_end);
    keep(add_fd_event(closed, 1, 0, run, notes("closed")));
    close(closed);
    EXPECT_EQ(cycle(), "t");
}

TEST_F(EventLoop, ExitEndsTheCycleAndALaterCallResumes)
{
    std::signal(SIGUSR1, [](int) { exit_event_loop(); });
    for (const bool by_signal : {false, true}) {
        for (const int kind : kinds) {
            add(EVENT_FD, notes("f"));
            add(EVENT_ALWAYS, notes("a"));
            add(EVENT_TIMER, notes("t"));
            add(kind, does([&](event_info *info) {
                    by_signal ? static_cast<void>(std::raise(SIGUSR1)) : exit_event_loop();
                    drop(info->event);
                }));
            log.clear();
            clock.now += 10'000;
            exit_event_loop(); // no loop runs: forgotten
            EXPECT_NE(event_loop(0), 0);
            EXPECT_EQ(log, kind == EVENT_TIMER ? "" : kind == EVENT_ALWAYS ? "t" : "ta");
            EXPECT_EQ(cycle(), "taf");
            drop_all();
        }
    }
}

// A step neither silences the timer nor makes it fire for longer than the periods it made due.
TEST_F(EventLoop, ClockSteps)
{
    for (const std::int64_t step : {-3600, -600, 10, 4000, 20 * 365 * 86400}) {
        for (const bool in_wait : {false, true}) {
            SCOPED_TRACE(step);
            int calls = 0;
            int alarms = 0;
            keep(add_timer_event(100, 0, run, does([&](event_info *) { ++calls; })));
            event_loop(1);
            add_alarm(10'000, [&](event_info *) { ++alarms; });
            (in_wait ? clock.step : clock.now) += step * second;
            const int replays = step == 10 ? 100 : 0;
            calls = 0;
            clock.waits.clear();
            for (int i = 0; i < replays + 5; ++i)
                event_loop(1);
            EXPECT_GE(calls, replays + 3);
            EXPECT_LE(std::ranges::count(clock.waits, 0), replays + 2);
            EXPECT_LE(std::ranges::max(clock.waits), 100);
            EXPECT_GE(std::ranges::min(clock.waits), 0);
            if (step == 10 || step == 4000) {
                EXPECT_EQ(alarms, 1);
            }
            drop_all();
        }
    }
}

TEST_F(EventLoop, RefusesWhatItCannotServe)
{
    for (const int fd : {-1, 1024, INT32_MAX})
        EXPECT_EQ(add_fd_event(fd, 0, 0, run, notes("")), nullptr);
    const int last = dup2(pipe.write_end, 1023);
    ASSERT_EQ(last, 1023);
    const timeval past{};
    const std::function<event *()> additions[] = {
        [&] { return add_fd_event(last, 1, EVENT_ONESHOT, run, notes("f")); },
        [&] { return add_always_event(EVENT_ONESHOT, run, notes("a")); },
        [&] { return add_timer_event(10, EVENT_ONESHOT, run, notes("t")); },
        [&] { return add_alarm_event(&past, 0, run, notes("l")); },
    };
    for (const auto &addition : additions)
        EXPECT_EQ(fail_each_allocation([&] { return addition() != nullptr; }), 1);
    EXPECT_EQ(cycle(), "ltaf");
    close(last);
}

// On the machine's clock.
class EventLoopThread : public EventLoop
{
protected:
    EventLoopThread() { virtual_clock = nullptr; }
    ~EventLoopThread() override
    {
        if (loop.joinable())
            loop.join();
    }

    void start()
    {
        loop = std::thread([this] {
            event_loop(0);
            ended = true;
        });
    }

    std::thread loop;
    std::atomic<bool> ended{false};
};

TEST_F(EventLoopThread, SignalEndsAWaitWithoutLimit)
{
    std::signal(SIGUSR1, [](int) { exit_event_loop(); });
    start();
    EXPECT_TRUE(wait_until([this] { // again, since the first may come before the loop runs
        pthread_kill(loop.native_handle(), SIGUSR1);
        return ended.load();
    }));
}

TEST_F(EventLoopThread, OtherThreadsAddEnableAndExit)
{
    constexpr int rounds = 1000;
    std::atomic<int> served{0};
    std::atomic<int> enabled{0};
    Action *const serve = does([&](event_info *) { ++served; });
    Action *const disable_self = does([&](event_info *info) {
        set_event_enabled(info->event, 0);
        ++enabled;
    });
    add(EVENT_ALWAYS, notes("")); // keeps the loop spinning
    event *switched = add(EVENT_FD, disable_self);
    start();
    std::thread adder([&] {
        for (int i = 0; i < rounds; ++i) {
            add_fd_event(pipe.write_end, 1, EVENT_ONESHOT, run, serve);
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
    adder.join();
    EXPECT_TRUE(wait_until([&] { return served == 3 * rounds; }));
    exit_event_loop();
    EXPECT_TRUE(wait_until([&] { return ended.load(); }));
}

} // namespace
