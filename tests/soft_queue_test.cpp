#include "event/event.h"
#include "tests/support/event_failing_new.h"
#include "tests/support/ipc_loop.h"

#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>

namespace
{

struct SoftQueue : testing::Test {
    ~SoftQueue() override
    {
        free_soft_queue(&queue);
        cycle(); // frees the events
        EXPECT_EQ(open_descriptors(), descriptors);
    }
    template <class Action>
    event *add(Action &action, unsigned flags = 0)
    {
        const auto run = [](event_info *info, void *arg) {
            return (*static_cast<Action *>(arg))(info);
        };
        return add_softqueue_event(queue, flags, run, &action);
    }
    void produce(std::uintptr_t first, std::uintptr_t last)
    {
        for (std::uintptr_t item = first; item != last; ++item)
            EXPECT_TRUE(wait_until([&] { return soft_queue_add(queue, item) == 0; }));
    }

    const std::ptrdiff_t descriptors = open_descriptors();
    soft_queue *queue = nullptr;
};

TEST_F(SoftQueue, FailuresLeaveNothingBehind)
{
    EXPECT_EQ(fail_each_allocation([&] { return (queue = new_soft_queue(2)) != nullptr; }), 2);
    soft_queue *const refusing = queue; // without `this`, whose check needs descriptors
    for (const int usable : {0, 4}) {   // none, or those of 1024 and more
        const FewDescriptors few(1028, usable);
        const event *refused = add_softqueue_event(refusing, 0, nullptr, nullptr);
        EXPECT_EQ(refused, nullptr);
    }
    auto ignore = [](event_info *) { return 0; };
    EXPECT_EQ(fail_each_allocation([&] {
                  const event *made = add(ignore);
                  EXPECT_EQ(open_descriptors(), descriptors + (made ? 2 : 0));
                  return made != nullptr;
              }),
              2);
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
    auto take = [&](event_info *info) {
        EXPECT_TRUE(info->type == EVENT_SOFTQUEUE && info->data == expected++);
        if (expected == UINTPTR_MAX)
            exit_event_loop();
        return 0;
    };
    int others = 0;
    auto once = [&](event_info *) { return ++others; };
    add(once, EVENT_ONESHOT);
    add(take);
    const auto room = static_cast<std::uintptr_t>(fcntl(queue->pipe_write, F_SETPIPE_SZ, 4096));
    produce(first, first + room);
    EXPECT_EQ(soft_queue_add(queue, 0), -1) << "the pipe is full";
    std::jthread producer([&] { produce(first + room, UINTPTR_MAX); });
    event_loop(0);
    EXPECT_EQ(others, 1);
}

} // namespace
