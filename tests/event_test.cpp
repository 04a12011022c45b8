#include "event/event.h"
#include "event/internal.h"
#include "event/soft_queue.h"
#include "tests/support/event_failing_new.h"
#include "tests/support/ipc_loop.h"

#include <algorithm>
#include <deque>
#include <functional>
#include <memory>
#include <utility>

#include <gtest/gtest.h>
#include <sys/select.h>

namespace
{

// The loop's clock stands still, except that a wait moves it on instead of passing.
constexpr std::int64_t second = 1'000'000; // microseconds
std::atomic<std::int64_t> now{1'750'000'000 * second + second / 2};
std::atomic<std::int64_t> step_in_wait{0}; // by which somebody sets the clock during the next wait
std::vector<int> waits;                    // of each cycle, ms; -1: without end

timeval in(std::int64_t us)
{
    const std::int64_t time = now + us; // a clock of 32 bits wraps
    return {static_cast<time_t>(time / second), static_cast<suseconds_t>(time % second)};
}

using Action = std::function<void(event_info *)>;
using Event = std::shared_ptr<event>; // removes it

std::int32_t run(event_info *info, void *action)
{
    (*static_cast<Action *>(action))(info);
    return -1;
}

struct EventLoop : testing::Test {
    Action *does(Action action) { return &actions.emplace_back(std::move(action)); }
    Action *notes(char name)
    {
        return does([=, this](event_info *) { called += name; });
    }
    // An event that is due in every cycle().
    event *add_plain(int kind, Action *action) const
    {
        return kind == EVENT_TIMER    ? add_timer_event(10, 0, run, action)
               : kind == EVENT_ALWAYS ? add_always_event(0, run, action)
                                      : add_fd_event(ready.get(), 1, 0, run, action);
    }
    Event add(int kind, Action *action) const { return {add_plain(kind, action), remove_event}; }
    // Runs one after `us`; returns the names of the callbacks.
    std::string cycle(std::int64_t us = 10'000)
    {
        now += us;
        EXPECT_EQ(event_loop(1), 1);
        return std::exchange(called, {});
    }

    const Fd ready{open("/dev/null", O_WRONLY | O_CLOEXEC)};
    std::string called;
    std::deque<Action> actions;
};

// Each addition is first tried with no memory left.
TEST_F(EventLoop, CallsNewestFirstTimersThenAlwaysThenDescriptors)
{
    const Fd last(dup2(ready.get(), 1023));
    const timeval past{};
    const auto add = [](auto addition) {
        EXPECT_EQ(fail_each_allocation([&] { return addition() != nullptr; }), 1);
    };
    for (const char *n : {"falt", "FALT"}) {
        add([&] { return add_fd_event(last.get(), 1, EVENT_ONESHOT, run, notes(n[0])); });
        add([&] { return add_always_event(EVENT_ONESHOT, run, notes(n[1])); });
        add([&] { return add_alarm_event(&past, 0, run, notes(n[2])); });
        add([&] { return add_timer_event(10, EVENT_ONESHOT, run, notes(n[3])); });
    }
    for (const int fd : {-1, 1024, INT32_MAX})
        EXPECT_EQ(add_fd_event(fd, 0, 0, run, nullptr), nullptr);
    EXPECT_EQ(cycle(), "TLtlAaFf");
    const Event closed(add_fd_event(1022, 0, 0, run, notes('c')), remove_event);
    EXPECT_EQ(cycle(), "") << "the others were one-shots, and a failed wait finds none ready";
}

TEST_F(EventLoop, TimersKeepTheirBeatUntilACallbackMovesThem)
{
    waits.clear();
    event_loop(1);
    const timeval later = in(2 * second);
    int calls = 0;
    Action *const move = does([&](event_info *info) {
        if (++calls == 6)
            set_event_interval(info->event, 50);
        if (calls == 8)
            resched_event(info->event, &later);
    });
    const Event timer(add_timer_event(100, EVENT_ENABLED, run, move), remove_event);
    for (const int ms : {1005, 1004, 1000}) { // what is due within 4 ms is served along
        const timeval when = in(ms * 1000 + 500);
        add_alarm_event(&when, 0, run, notes('l'));
    }
    for (const int late : {0, 0, 350, 0, 0, 0, 0, 0, 0, 0, 0}) { // one call a cycle makes up for it
        now += late * 1000;
        event_loop(1);
    }
    // Each wait is cut to whole ms; the due times stay on the beat.
    EXPECT_EQ(waits, (std::vector{-1, 99, 100, 0, 0, 0, 50, 150, 50, 201, 5, 994}));
    const timeval due = timer->when;
    set_event_enabled(timer.get(), 0);
    set_event_interval(timer.get(), 7); // for when it wakes
    EXPECT_TRUE(!get_event_enabled(timer.get()) && timer->interval == 7);
    EXPECT_EQ(time_diff(&due, &timer->when), 0);
    resched_event(timer.get(), nullptr);
    const timeval from = in(0);
    EXPECT_EQ(time_diff(&from, &timer->when), 7);
}

// A step neither silences the timer nor makes it fire for longer than the periods it made due.
TEST_F(EventLoop, ClockSteps)
{
    for (const std::int64_t step : {-3600, 10, 20 * 365 * 86400}) {
        for (const auto clock : {&now, &step_in_wait}) {
            const Event timer(add_timer_event(100, 0, run, notes('t')), remove_event);
            event_loop(1);
            *clock += step * second;
            const int replays = step == 10 ? 100 : 0;
            waits.clear();
            called.clear();
            for (int i = 0; i < replays + 5; ++i)
                event_loop(1);
            EXPECT_GE(std::ssize(called), replays + 4) << step;
            const auto at_once = std::ranges::count(waits, 0);
            EXPECT_TRUE(replays - 2 <= at_once && at_once <= replays + 2)
                << step << ": " << at_once;
        }
    }
}

TEST(DueTime, IsDelayedByAStepOfTheClockAtMost)
{
    const auto at = [](std::int64_t ms) { return in(ms * 1000); };
    constexpr int interval = 100;
    constexpr int hour = 3'600'000;
    const struct {
        int due, clock; // ms after the last cycle
        bool given;
        int left; // ms
    } cases[] = {
        {100, 30, false, 70},
        {39, -60, false, 99},
        {41, -60, false, 41},
        {350, -hour, false, 350},
        {9, 5, true, 0},
        {10, 5, true, 5},
        {0, -hour, true, 2'147'000},
        {-hour + 350, -hour, false, 0},
    };
    for (const auto &[due, clock, given, left] : cases) {
        timeval when = at(due);
        when.tv_usec += 500; // what is left is cut to whole ms
        when = va::follow_clock(when, interval, given, at(clock), at(0));
        EXPECT_EQ(va::remaining_ms(when, at(clock)), left) << due << ' ' << clock;
    }
}

// A time that was given stays; a beat keeps its distance, be it several periods.
TEST_F(EventLoop, ClockSetBack)
{
    const Event spin = add(EVENT_ALWAYS, notes('a')); // no wait passes any time
    constexpr std::int64_t hour = 3600 * second;
    for (const std::int64_t step : {second / 1000, hour}) {
        const timeval given = in(hour);
        const Event fixed(add_timer_event(100, 0, run, notes('f')), remove_event);
        const Event moved(add_timer_event(100, 0, run, notes('m')), remove_event);
        resched_event(fixed.get(), &given);
        resched_event(moved.get(), nullptr);
        EXPECT_EQ(cycle(0), "a");
        EXPECT_EQ(cycle(-step), "a");
        EXPECT_EQ(time_ago(&moved->when), -199) << "200 ms, cut";
        EXPECT_EQ(cycle(hour + step - 5500), "ma");
        EXPECT_EQ(cycle(5500), "fa");
        EXPECT_EQ(cycle(-step), "a");
        EXPECT_EQ(time_ago(&fixed->when), -99) << "on its beat again";
    }
}

TEST_F(EventLoop, ChangesWhileDispatching)
{
    for (const int kind : {EVENT_TIMER, EVENT_ALWAYS, EVENT_FD}) {
        SCOPED_TRACE(kind);
        event *added = nullptr;
        Event removed = add(kind, notes('!'));
        const Event disabled = add(kind, notes('d'));
        Event self = add(kind, does([&](event_info *info) {
                             EXPECT_EQ(info->type, kind);
                             removed.reset();
                             set_event_enabled(disabled.get(), 0);
                             add(kind, notes('!')); // removed while pending
                             added = add_plain(kind, notes('n'));
                             self.reset();
                         }));
        EXPECT_EQ(cycle(), "d");
        EXPECT_EQ(cycle(), "n");
        EXPECT_EQ(added->next, disabled.get()) << "not all between them are freed";
        set_event_enabled(disabled.get(), 1);
        EXPECT_EQ(cycle(), "nd");
        added->flags |= EVENT_REMOVED; // this thread is the loop's
        EXPECT_EQ(cycle(), "d");
        EXPECT_EQ(disabled->prev, nullptr) << "not freed";
        const Event last = add(kind, does([](event_info *) { exit_event_loop(); }));
        EXPECT_EQ(cycle(), "");
    }
}

TEST_F(EventLoop, OtherThreadsAddRemoveEnableAndExit)
{
    constexpr int rounds = 20'000;
    int served = 0;
    std::atomic<int> cycles{0};
    Action *const serve = does([&](event_info *) { ++served; });
    Action *const count = does([&](event_info *) { ++cycles; });
    const Event spin = add(EVENT_ALWAYS, count);
    const Event switched = add(EVENT_FD, count);
    exit_event_loop(); // no loop runs: forgotten
    std::jthread loop([] { EXPECT_NE(event_loop(0), 0); });
    std::jthread adder([&] {
        for (int i = 0; i < rounds; ++i) {
            add_fd_event(ready.get(), 1, EVENT_ONESHOT, run, serve);
            add_timer_event(1, EVENT_ONESHOT, run, serve);
            add(EVENT_ALWAYS, count); // removed at once
        }
    });
    int lost = 0;
    for (int i = 0; cycles < 300'000; ++i) {
        set_event_enabled(switched.get(), i % 2);
        lost += get_event_enabled(switched.get()) != i % 2;
    }
    adder.join();
    exit_event_loop();
    loop.join();
    cycle();
    EXPECT_EQ(lost, 0);
    EXPECT_EQ(served, 2 * rounds);
}

struct SoftQueue : EventLoop {
    ~SoftQueue() override
    {
        free_soft_queue(&queue);
        const Event left = add(EVENT_FD, notes('l'));
        EXPECT_TRUE(cycle().ends_with('l')) << "waits for a closed descriptor";
        EXPECT_EQ(open_descriptors(), descriptors);
    }
    void produce(std::uintptr_t first, std::uintptr_t last) const
    {
        for (std::uintptr_t item = first; item != last; ++item)
            EXPECT_TRUE(wait_until([&] { return soft_queue_add(queue, item) == 0; }));
    }

    const std::ptrdiff_t descriptors = open_descriptors();
    soft_queue *queue = nullptr;
};

TEST_F(SoftQueue, StaysOnTheLoopUntilItsPipeEnds)
{
    queue = new_soft_queue(1);
    const auto add = [&](unsigned flags, Action *action) {
        event *added = nullptr;
        fail_each_allocation(
            [&] { return added = add_softqueue_event(queue, flags, run, action); });
        return added;
    };
    add(0, notes('t'));
    add(EVENT_ONESHOT, does([this](event_info *) { produce(2, 3); }));
    event *const asleep = add(EVENT_ASLEEP | EVENT_ENABLED, does([this](event_info *) {
                                  called += 'a';
                                  exit_event_loop();
                              }));
    EXPECT_EQ(asleep->flags, 0U);
    sq_run(nullptr, queue); // no byte yet
    produce(1, 2);
    EXPECT_EQ(cycle(), "t");
    EXPECT_EQ(asleep->next->next, nullptr) << "the one-shot is not freed";
    set_event_enabled(asleep, 1);
    EXPECT_EQ(cycle(), "a") << "and nobody after the end";
    dup2(Fd(open("/dev/null", O_RDONLY | O_CLOEXEC)).get(), queue->pipe_read);
    cycle();
    EXPECT_EQ(queue->pipe_event, nullptr);
}

TEST_F(SoftQueue, ThreadTakesItemsInOrder)
{
    queue = new_soft_queue(50);
    std::jthread producer([&] { produce(1, 5000); });
    for (std::uintptr_t expected = 1; expected != 5000;) {
        const std::uintptr_t item = get_next_event(queue);
        EXPECT_TRUE(item == 0 || item == expected);
        expected += item != 0;
    }
}

// Many more items than the pipe has room for come through whole and in order.
TEST_F(SoftQueue, LoopTakesItemsInOrder)
{
    queue = new_soft_queue(10'000);
    constexpr std::uintptr_t first = UINTPTR_MAX - 5000;
    std::uintptr_t expected = first;
    add_softqueue_event(queue, EVENT_ONESHOT, run, notes('o'));
    add_softqueue_event(queue, 0, run, does([&](event_info *info) {
                            EXPECT_TRUE(info->type == EVENT_SOFTQUEUE && info->data == expected++);
                        }));
    const auto room = static_cast<std::uintptr_t>(fcntl(queue->pipe_write, F_SETPIPE_SZ, 4096));
    produce(first, first + room);
    EXPECT_EQ(soft_queue_add(queue, 0), -1) << "the pipe is full";
    std::jthread producer([&] { produce(first + room, UINTPTR_MAX); });
    while (expected != UINTPTR_MAX)
        event_loop(1);
    EXPECT_EQ(called, "o");
}

} // namespace

// These two stand in front of the C library's.
extern "C" int gettimeofday(timeval *time, void *) noexcept
{
    *time = in(0);
    return 0;
}

extern "C" int select(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout)
{
    const timespec at_once{};
    const int ready = pselect(count, read, write, except, &at_once, nullptr);
    const std::int64_t us = timeout ? timeout->tv_sec * second + timeout->tv_usec : 0;
    waits.push_back(timeout ? static_cast<int>(us / 1000) : -1);
    now += (ready == 0 ? us : 0) + step_in_wait.exchange(0);
    return ready;
}
