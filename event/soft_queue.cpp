#include "event/soft_queue.h"

#include "event/internal.h"
#include "util/guarded.h"

#include <cassert>
#include <cerrno>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace
{

// What a queue has besides the described record, which it is allocated with.
struct Queue : soft_queue {
    explicit Queue(std::size_t count) : soft_queue{}, slots(new (std::nothrow) sq_node[count])
    {
        pthread_mutex_init(&mutex, nullptr);
        pthread_cond_init(&cond, nullptr);
        pipe_read = -1;
        pipe_write = -1;
    }
    ~Queue();

    std::unique_ptr<sq_node[]> slots;
};

sq_node *take_head(sq_node **list)
{
    sq_node *node = *list;
    if (node->next == node) {
        *list = nullptr;
    } else {
        node->next->prev = node->prev;
        node->prev->next = node->next;
        *list = node->next;
    }
    return node;
}

void append(sq_node **list, sq_node *node)
{
    if (!*list)
        *list = node->prev = node; // its own neighbour
    sq_node *const head = *list;
    node->next = head;
    node->prev = head->prev;
    head->prev->next = node;
    head->prev = node;
}

// The oldest item, or 0 when there is none.
std::uintptr_t take_item(soft_queue &queue) VA_REQUIRES(queue.mutex)
{
    if (!queue.pending)
        return 0;
    sq_node *node = take_head(&queue.pending);
    append(&queue.free_nodes, node);
    return node->item;
}

void close_pipe(soft_queue &queue) VA_REQUIRES(queue.mutex)
{
    remove_event(std::exchange(queue.pipe_event, nullptr));
    for (std::int32_t *end : {&queue.pipe_read, &queue.pipe_write})
        va::Fd(std::exchange(*end, -1)).reset();
}

Queue::~Queue()
{
    close_pipe(*this);
    for (event *listener = events; listener; listener = listener->next)
        remove_event(listener);
    strip_events(&events);
    pthread_cond_destroy(&cond);
    pthread_mutex_destroy(&mutex);
}

// Non-blocking, since the bytes are written and read under the mutex that the other side needs.
bool open_pipe(soft_queue &queue) VA_REQUIRES(queue.mutex)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) == -1)
        return false;
    queue.pipe_read = ends[0];
    queue.pipe_write = ends[1];
    queue.pipe_event = add_fd_event(queue.pipe_read, 0, 0, sq_run, &queue);
    if (!queue.pipe_event)
        close_pipe(queue);
    return queue.pipe_event;
}

bool write_wake_byte(const soft_queue &queue) VA_REQUIRES(queue.mutex)
{
    const char byte = 0;
    return write(queue.pipe_write, &byte, sizeof byte) == sizeof byte;
}

[[maybe_unused]] bool is_on_loop(soft_queue &queue)
{
    const va::ScopedLock lock(queue.mutex);
    return queue.pipe_event;
}

} // namespace

soft_queue *new_soft_queue(int slots)
{
    constexpr std::size_t max_slots = std::numeric_limits<std::ptrdiff_t>::max() / sizeof(sq_node);
    const std::size_t count = slots < 1 ? 0 : static_cast<std::size_t>(slots);
    if (count > max_slots)
        return nullptr;
    std::unique_ptr<Queue> queue(new (std::nothrow) Queue(count));
    if (!queue || !queue->slots)
        return nullptr;
    va::assume_locked(queue->mutex);
    for (std::size_t i = 0; i < count; ++i)
        append(&queue->free_nodes, &queue->slots[i]);
    return queue.release();
}

int soft_queue_add(soft_queue *queue, std::uintptr_t item)
{
    const va::ScopedLock lock(queue->mutex);
    if (!queue->free_nodes)
        return -1;
    // Before the item, so that none is queued without its byte; the reader waits for the mutex.
    if (queue->pipe_event && !write_wake_byte(*queue))
        return -1;
    sq_node *node = take_head(&queue->free_nodes);
    node->item = item;
    append(&queue->pending, node);
    if (!queue->pipe_event)
        pthread_cond_signal(&queue->cond);
    return 0;
}

std::uintptr_t get_next_event(soft_queue *queue)
{
    const va::ScopedLock lock(queue->mutex);
    if (!queue->pending)
        pthread_cond_wait(&queue->cond, &queue->mutex);
    return take_item(*queue);
}

event *add_softqueue_event(soft_queue *queue, unsigned flags, event_callback callback, void *arg)
{
    va::Owner<event, va::free_event> created(va::make_event(EVENT_SOFTQUEUE, flags, callback, arg));
    if (!created)
        return nullptr;
    created->queue = queue;
    const va::ScopedLock lock(queue->mutex);
    if (!queue->pipe_event && !open_pipe(*queue))
        return nullptr;
    va::push_front(&queue->events, created.get());
    return created.release();
}

std::int32_t sq_run(event_info *, void *queue_arg)
{
    auto *queue = static_cast<soft_queue *>(queue_arg);
    assert(is_loop_thread());
    const va::ScopedLock lock(queue->mutex);
    char byte;
    const ssize_t got = read(queue->pipe_read, &byte, sizeof byte);
    if (got < 1) {
        if (got == 0 || errno != EAGAIN)
            close_pipe(*queue);
        return 0;
    }
    event_info info{nullptr, EVENT_SOFTQUEUE, take_item(*queue)};
    event *listener = queue->events;
    for (; listener && !va::load_shared(end_loop); listener = listener->next) {
        if (!get_event_enabled(listener))
            continue;
        if (va::load_shared(listener->flags) & EVENT_ONESHOT)
            va::shared(listener->flags) |= EVENT_REMOVED;
        info.event = listener;
        const va::ScopedUnlock unlocked(queue->mutex);
        listener->callback(&info, listener->arg);
    }
    strip_events(&queue->events);
    return 0;
}

void free_soft_queue(soft_queue **queue)
{
    assert(!queue || !*queue || !is_on_loop(**queue) || is_loop_thread());
    if (queue)
        delete static_cast<Queue *>(std::exchange(*queue, nullptr));
}
