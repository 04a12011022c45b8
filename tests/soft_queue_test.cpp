#include "event/soft_queue.h"
#include "tests/support/event_failing_new.h"
#include "tests/support/ipc_loop.h"

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace
{

using Items = std::vector<std::uintptr_t>;
using Action = std::function<void(event_info *)>;

std::int32_t run(event_info *info, void *action)
{
    (*static_cast<Action *>(action))(info);
    return -1;
}

class SoftQueue : public testing::Test
{
protected:
    ~SoftQueue() override
    {
        free_soft_queue(&queue);
        EXPECT_EQ(queue, nullptr);
        cycle(); // frees the events
        EXPECT_EQ(open_descriptors(), descriptors);
    }

    // Runs so many cycles; returns the names of the callbacks.
    std::string cycles(int count)
    {
        log.clear();
        while (count-- > 0)
            cycle();
        return log;
    }
    void add(const Items &items)
    {
        for (const std::uintptr_t item : items)
            EXPECT_EQ(soft_queue_add(queue, item), 0);
    }

    const std::ptrdiff_t descriptors = open_descriptors();
    soft_queue *queue = new_soft_queue(2);
    std::string log;
    Action a = [this](event_info *info) { log += 'a' + std::to_string(info->data); };
    Action b = [this](event_info *info) { log += 'b' + std::to_string(info->data); };
};

TEST_F(SoftQueue, ThreadTakesItemsInOrder)
{
    for (std::uintptr_t item = 1; item < 8; item += 2) {
        add({item, item + 1});
        EXPECT_EQ(soft_queue_add(queue, 99), -1);
        EXPECT_EQ(get_next_event(queue), item);
        EXPECT_EQ(get_next_event(queue), item + 1);
    }
    for (const int slots : {0, -1}) {
        soft_queue *none = new_soft_queue(slots);
        ASSERT_NE(none, nullptr);
        EXPECT_EQ(soft_queue_add(none, 1), -1);
        free_soft_queue(&none);
    }
    soft_queue *null = nullptr;
    free_soft_queue(&null);
    free_soft_queue(nullptr);
}

TEST_F(SoftQueue, EachItemGoesToEveryEvent)
{
    Action check = [this](event_info *info) {
        log += 'c';
        EXPECT_EQ(info->type, EVENT_SOFTQUEUE);
        EXPECT_EQ(info->event->type, EVENT_SOFTQUEUE);
        EXPECT_EQ(info->event->queue, queue);
    };
    event *first = add_softqueue_event(queue, 0, run, &a);
    add_softqueue_event(queue, EVENT_ONESHOT, run, &check);
    event *third = add_softqueue_event(queue, 0, run, &b);
    for (const int end : {queue->pipe_read, queue->pipe_write})
        EXPECT_EQ(fcntl(end, F_GETFD), FD_CLOEXEC);
    add({1, 2});
    EXPECT_EQ(soft_queue_add(queue, 3), -1);
    EXPECT_EQ(cycles(1), "b1ca1") << "one item at a time";
    EXPECT_EQ(third->next, first) << "the one-shot is gone";
    EXPECT_EQ(cycles(2), "b2a2");
    set_event_enabled(third, 0);
    add({4});
    EXPECT_EQ(cycles(1), "a4");
    set_event_enabled(third, 1);
    remove_event(first);
    const auto pointer = reinterpret_cast<std::uintptr_t>(&log);
    add({pointer});
    EXPECT_EQ(cycles(1), "b" + std::to_string(pointer));
    EXPECT_EQ(third->next, nullptr);
}

TEST_F(SoftQueue, ChangesWhileDispatching)
{
    event *removed = add_softqueue_event(queue, 0, run, &a);
    Action change = [&](event_info *info) {
        remove_event(removed);
        remove_event(info->event);
        add_softqueue_event(queue, 0, run, &b);
        add({info->data + 1});
    };
    add_softqueue_event(queue, 0, run, &change);
    add({1});
    EXPECT_EQ(cycles(1), "");
    EXPECT_EQ(cycles(1), "b2");
}

TEST_F(SoftQueue, ItemTakenOutAtTheExitGoesNoFurther)
{
    add_softqueue_event(queue, 0, run, &a);
    Action exit = [](event_info *) { exit_event_loop(); };
    add_softqueue_event(queue, EVENT_ONESHOT, run, &exit);
    add({1, 2});
    EXPECT_EQ(cycles(1), "");
    EXPECT_EQ(cycles(2), "a2");
}

TEST_F(SoftQueue, ItemsFromBeforeTheLoopComeFirst)
{
    add({1});
    add_softqueue_event(queue, 0, run, &a);
    EXPECT_EQ(cycles(2), "");
    add({2});
    EXPECT_EQ(cycles(2), "a1");
}

TEST_F(SoftQueue, BrokenPipeIsReplaced)
{
    add_softqueue_event(queue, 0, run, &a);
    const int empty = open("/dev/null", O_RDONLY | O_CLOEXEC);
    dup2(empty, queue->pipe_read);
    close(empty);
    EXPECT_EQ(cycles(2), "");
    EXPECT_EQ(queue->pipe_event, nullptr);
    EXPECT_EQ(open_descriptors(), descriptors);
    add_softqueue_event(queue, 0, run, &b);
    add({1});
    EXPECT_EQ(cycles(1), "b1a1");
}

TEST_F(SoftQueue, FullPipeRefusesItems)
{
    free_soft_queue(&queue);
    queue = new_soft_queue(100'000);
    std::uintptr_t received = 0;
    Action count = [&](event_info *info) { EXPECT_EQ(info->data, ++received); };
    add_softqueue_event(queue, 0, run, &count);
    fcntl(queue->pipe_write, F_SETPIPE_SZ, 4096);
    std::uintptr_t added = 0;
    while (soft_queue_add(queue, added + 1) == 0)
        ++added;
    EXPECT_EQ(added, static_cast<std::uintptr_t>(fcntl(queue->pipe_write, F_GETPIPE_SZ)));
    cycles(static_cast<int>(added));
    EXPECT_EQ(received, added);
    add({added + 1});
    cycles(1);
    EXPECT_EQ(received, added + 1) << "no item stays behind";
}

TEST_F(SoftQueue, FailuresLeaveNothingBehind)
{
    EXPECT_EQ(fail_each_allocation([] {
                  soft_queue *made = new_soft_queue(3);
                  const bool success = made;
                  free_soft_queue(&made);
                  return success;
              }),
              2);

    soft_queue *const refusing = queue;
    Action *const action = &a;
    for (const int usable : {0, 4}) { // none, or those of 1024 and more
        const FewDescriptors few(1028, usable);
        // Without `this`, whose check by the undefined-behaviour sanitizer needs descriptors.
        const event *refused = add_softqueue_event(refusing, 0, run, action);
        EXPECT_EQ(refused, nullptr);
    }

    EXPECT_EQ(fail_each_allocation([this] {
                  const event *made = add_softqueue_event(queue, 0, run, &a);
                  EXPECT_EQ(queue->events, made);
                  EXPECT_EQ(queue->pipe_event != nullptr, made != nullptr);
                  EXPECT_EQ(open_descriptors(), descriptors + (made ? 2 : 0));
                  return made != nullptr;
              }),
              2);
    add({1});
    EXPECT_EQ(cycles(1), "a1");
}

// Many more items than slots come through whole and in order.
TEST_F(SoftQueue, CarriesItemsBetweenThreads)
{
    constexpr std::uintptr_t rounds = 5000;
    free_soft_queue(&queue);
    queue = new_soft_queue(50);
    const auto produce = [this] {
        for (std::uintptr_t item = 1; item <= rounds;) {
            if (soft_queue_add(queue, item) == 0)
                ++item;
            else
                std::this_thread::yield();
        }
    };
    std::thread to_thread(produce);
    for (std::uintptr_t expected = 1; expected <= rounds;) {
        if (const std::uintptr_t item = get_next_event(queue)) {
            EXPECT_EQ(item, expected);
            ++expected;
        }
    }
    to_thread.join();

    std::uintptr_t received = 0;
    Action take = [&](event_info *info) {
        EXPECT_EQ(info->data, ++received);
        if (received == rounds)
            exit_event_loop();
    };
    add_softqueue_event(queue, 0, run, &take);
    std::thread to_loop(produce);
    EXPECT_NE(event_loop(0), 0);
    to_loop.join();
    EXPECT_EQ(received, rounds);
}

} // namespace
