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

TEST_F(SoftQueue, StaysOnTheLoopUntilItsPipeEnds)
{
    EXPECT_EQ(fail_each_allocation([&] { return (queue = new_soft_queue(1)) != nullptr; }), 2);
    std::uintptr_t taken = 0;
    auto take = [&](event_info *info) { return taken += info->data, 0; };
    for (const std::uintptr_t sum : {1, 3}) { // one event takes the item, then two
        EXPECT_EQ(fail_each_allocation([&] { return add(take) != nullptr; }), 2);
        sq_run(nullptr, queue); // no byte yet
        produce(1, 2);
        cycle();
        EXPECT_EQ(taken, sum);
        dup2(Fd(open("/dev/null", O_RDONLY | O_CLOEXEC)).get(), queue->pipe_read);
        cycle();
        EXPECT_EQ(queue->pipe_event, nullptr);
    }
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
