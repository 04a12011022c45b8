#include "event/soft_queue.h"
#include "tests/support/event_failing_new.h"
#include "tests/support/ipc_loop.h"

#include <functional>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>

namespace
{

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
        cycle(); // frees the events
        EXPECT_EQ(open_descriptors(), descriptors);
    }

    void renew(int slots)
    {
        free_soft_queue(&queue);
        queue = new_soft_queue(slots);
    }
    // Returns the callbacks of one cycle: the names and the items.
    std::string calls()
    {
        log.clear();
        cycle();
        return log;
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
        soft_queue_add(queue, item);
        soft_queue_add(queue, item + 1);
        EXPECT_EQ(soft_queue_add(queue, 99), -1);
        EXPECT_EQ(get_next_event(queue), item);
        EXPECT_EQ(get_next_event(queue), item + 1);
    }
    renew(-1);
    EXPECT_EQ(soft_queue_add(queue, 1), -1);
}

TEST_F(SoftQueue, EachItemGoesToEveryEvent)
{
    Action exit = [this](event_info *info) {
        log += 'x';
        EXPECT_EQ(info->type, EVENT_SOFTQUEUE);
        exit_event_loop();
    };
    event *first = add_softqueue_event(queue, 0, run, &a);
    add_softqueue_event(queue, EVENT_ONESHOT, run, &exit);
    event *third = add_softqueue_event(queue, 0, run, &b);
    soft_queue_add(queue, 1);
    soft_queue_add(queue, 2);
    EXPECT_EQ(soft_queue_add(queue, 3), -1);
    EXPECT_EQ(calls(), "b1x") << "one item at a time, and no further than the exit";
    EXPECT_EQ(calls(), "b2a2") << "the one-shot is gone";
    set_event_enabled(third, 0);
    soft_queue_add(queue, UINTPTR_MAX);
    EXPECT_EQ(calls(), 'a' + std::to_string(UINTPTR_MAX));
    set_event_enabled(third, 1);
    remove_event(first);
    soft_queue_add(queue, 5);
    EXPECT_EQ(calls(), "b5");
}

TEST_F(SoftQueue, ChangesWhileDispatching)
{
    event *removed = add_softqueue_event(queue, 0, run, &a);
    Action change = [&](event_info *info) {
        remove_event(removed);
        remove_event(info->event);
        add_softqueue_event(queue, 0, run, &b);
        soft_queue_add(queue, info->data + 1);
    };
    add_softqueue_event(queue, 0, run, &change);
    soft_queue_add(queue, 1);
    EXPECT_EQ(calls(), "");
    EXPECT_EQ(calls(), "b2");
}

TEST_F(SoftQueue, FullPipeRefusesItems)
{
    renew(100'000);
    std::uintptr_t received = 0;
    Action count = [&](event_info *info) { EXPECT_EQ(info->data, ++received); };
    add_softqueue_event(queue, 0, run, &count);
    fcntl(queue->pipe_write, F_SETPIPE_SZ, 4096);
    std::uintptr_t added = 0;
    while (soft_queue_add(queue, added + 1) == 0)
        ++added;
    EXPECT_EQ(added, static_cast<std::uintptr_t>(fcntl(queue->pipe_write, F_GETPIPE_SZ)));
    for (std::uintptr_t item = 0; item < added; ++item)
        cycle();
    EXPECT_EQ(received, added);
    EXPECT_EQ(soft_queue_add(queue, added + 1), 0);
    cycle();
    EXPECT_EQ(received, added + 1) << "no item stays behind";
}

TEST_F(SoftQueue, FailuresLeaveNothingBehind)
{
    EXPECT_EQ(fail_each_allocation([this] {
                  renew(2);
                  return queue != nullptr;
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
                  EXPECT_EQ(open_descriptors(), descriptors + (made ? 2 : 0));
                  return made != nullptr;
              }),
              2);
    soft_queue_add(queue, 1);
    EXPECT_EQ(calls(), "a1");
}

// Many more items than slots come through whole and in order.
TEST_F(SoftQueue, CarriesItemsBetweenThreads)
{
    constexpr std::uintptr_t rounds = 5000;
    renew(50);
    const auto produce = [this] {
        for (std::uintptr_t item = 1; item <= rounds; ++item) {
            while (soft_queue_add(queue, item) != 0)
                std::this_thread::yield();
        }
    };
    std::jthread to_thread(produce);
    for (std::uintptr_t expected = 1; expected <= rounds;) {
        const std::uintptr_t item = get_next_event(queue);
        EXPECT_TRUE(item == 0 || item == expected);
        expected += item != 0;
    }
    std::uintptr_t received = 0;
    Action take = [&](event_info *info) {
        EXPECT_EQ(info->data, ++received);
        if (received == rounds)
            exit_event_loop();
    };
    add_softqueue_event(queue, 0, run, &take);
    std::jthread to_loop(produce);
    event_loop(0);
}

} // namespace
