#pragma once

#include "event/loop.h"
#include "util/guarded.h"

#include <cstdint>
#include <type_traits>

#include <pthread.h>

// A soft queue carries items of one word, a number or a pointer, from producer threads to one kind
// of consumer: a thread that blocks in get_next_event(), or, once it has a soft-queue event, the
// event loop, which hands every item to all the queue's events. Items come out in the order they
// went in.
//
// A queue on the loop is woken through a pipe, one byte an item. Items that were queued before the
// first add_softqueue_event() have none: each later byte takes the oldest item, so they are served
// first and as many of the newest stay behind.

struct sq_node {
    sq_node *next; // circular
    sq_node *prev;
    std::uintptr_t item;
};

// All fields belong to the queue.
struct soft_queue {
    pthread_mutex_t mutex; // never held while a callback runs
    pthread_cond_t cond;   // wakes a thread consumer
    sq_node *free_nodes VA_GUARDED_BY(mutex);
    sq_node *pending VA_GUARDED_BY(mutex); // oldest first
    event *events VA_GUARDED_BY(mutex);    // the soft-queue events, newest first
    // Close-on-exec and non-blocking, both ends; -1 while there is no pipe.
    std::int32_t pipe_read VA_GUARDED_BY(mutex);
    std::int32_t pipe_write VA_GUARDED_BY(mutex);
    // The loop's event on pipe_read; null while not on the loop.
    event *pipe_event VA_GUARDED_BY(mutex);
};

static_assert(std::is_standard_layout_v<soft_queue> && std::is_trivially_copyable_v<soft_queue>);

// A queue for at most `slots` items at a time (none below 1); null when memory is short.
// free_soft_queue() ends it.
soft_queue *new_soft_queue(int slots);

// Any thread; never blocks. Queues `item` and wakes the consumer. What it points to stays the
// caller's business. Returns 0, or -1, with nothing queued, when no slot is free. On the loop a
// full pipe counts as no free slot: it takes 65536 bytes as Linux makes it, fewer for a user who
// has very many pipes.
int soft_queue_add(soft_queue *queue, std::uintptr_t item);

// For a consumer thread, on a queue without soft-queue events. Takes the oldest item; waits for one
// if there is none. Returns 0 when woken without an item, which may happen at any time: call again.
// A consumer for which that matters queues items other than 0.
std::uintptr_t get_next_event(soft_queue *queue);

// Any thread. Has the event loop call `callback` with `arg` for every item from now on; the first
// call puts the queue on the loop. The event_info has type EVENT_SOFTQUEUE and the item as `data`,
// and each item goes to every enabled event, newest event first; with none enabled it is dropped,
// and once exit_event_loop() has been called it goes to no further event. `flags` is that of the
// loop's add operations (EVENT_ONESHOT: served for one item only). Returns the event, for
// set_event_enabled() and for remove_event(), which is to be called on the loop thread (a removed
// event is freed after the queue's next item); null, with nothing changed, when memory or
// descriptors are short or the pipe's descriptor is 1024 or more.
event *add_softqueue_event(soft_queue *queue, unsigned flags, event_callback callback, void *arg);

// The loop's callback for the pipe; `queue` is the soft_queue. Loop thread; without a byte in the
// pipe nothing happens. When the pipe has ended or fails it takes the queue off the loop; the
// events stay, and the next add_softqueue_event() makes a new pipe.
std::int32_t sq_run(event_info *info, void *queue);

// Frees *queue with its slots, events and pipe, and sets *queue to null; null is accepted at either
// level. Items still queued are dropped. Call it when no producer and no consumer uses the queue
// any more: for a queue on the loop on the loop thread, outside the queue's own callbacks, or while
// no loop runs.
void free_soft_queue(soft_queue **queue);
