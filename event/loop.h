#pragma once

#include "event/clock.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

// A single-threaded select() reactor: descriptor, timer, alarm and always events. What carries
// items from other threads into it is in event/soft_queue.h. event/event.h has both.
//
// One thread, the loop thread, calls event_loop(); every callback runs on it, one after another,
// with no lock held. Any thread may add events and enable or disable them; such a change takes part
// from the loop's next cycle on. It does not wake the loop: keep a periodic timer running where the
// delay must be bounded.
//
// Order within a cycle: due timers, then always events, then ready descriptors, each newest first.
// Times are wall-clock times. A timer or alarm is served up to 4 ms early rather than after another
// short wait. A timer that is late by several periods is served once in each of the following
// cycles; one late by more than 35 minutes is served once and counts from then on. A clock that is
// set back delays a timer by no more than that step, and by about its period at most. So a step of
// the clock neither silences them nor makes them replay hours. A time that was given, an alarm's or
// resched_event()'s, stays.

struct soft_queue;

// What a callback gets about its call; valid during the call only.
struct event_info {
    struct event *event; // the event being dispatched; a callback may remove or reschedule it
    std::int32_t type;   // an EVENT_TIMER .. EVENT_SOFTQUEUE code
    std::uintptr_t data; // the item of a soft-queue event, else 0
};

// Runs on the loop thread and must not block it. The result is ignored.
using event_callback = std::int32_t (*)(event_info *info, void *arg);

enum : std::int32_t {
    EVENT_TIMER = 1, // timers and alarms
    EVENT_FD = 2,
    EVENT_ALWAYS = 3,
    EVENT_SOFTQUEUE = 4,
};

enum : std::uint32_t {
    EVENT_ENABLED = 1, // takes part in the next cycle
    EVENT_REMOVED = 2, // dead; freed at the end of the cycle
    EVENT_ONESHOT = 4, // removed by its first dispatch
    EVENT_ARMED = 8,   // found enabled when the cycle was prepared: may be dispatched in this cycle
};

// For the add operations alone, and not among an event's flags: it is not enabled yet.
inline constexpr unsigned EVENT_ASLEEP = 1U << 31;

// The loop owns every event. A pointer returned by an add operation stays good until
// remove_event(), or until the cycle of a one-shot's dispatch ends; drop it then. All fields but
// `flags` belong to the loop thread once the event has been added. A descriptor callback finds its
// descriptor in info->event->fd.
//
// Threads change `flags` by the operations below alone, which keep each other's bits. On the loop
// thread, and while no other thread changes it, EVENT_REMOVED may also be set as it stands: the
// loop frees the event at the end of the next cycle, and does not call it in this one; a soft queue
// calls it for one item more.
struct event {
    event *prev;
    event *next;
    event_callback callback;
    void *arg;
    std::int32_t type;
    std::uint32_t flags;
    __extension__ union {
        struct {
            std::int32_t fd;
            std::int32_t write; // 0: wait for readability; else for writability
        };
        timeval when;      // absolute due time of a timer or alarm
        soft_queue *queue; // owner of a soft-queue event
    };
    std::int32_t interval; // timer period, ms; 0 for alarms
};

static_assert(std::is_standard_layout_v<event> && std::is_trivially_copyable_v<event>);
static_assert(sizeof(void *) != 4 || sizeof(timeval) != 8 ||
              (offsetof(event, flags) == 20 && offsetof(event, interval) == 32 &&
               sizeof(event) == 36));

// Runs cycles on the calling thread until exit_event_loop(); with `once` non-zero exactly one
// cycle. Without an enabled timer or always event a cycle waits for descriptors without limit. A
// stop request made before the call is forgotten; a later call resumes with the same events.
// Returns `once` or, after a stop, a non-zero value. Not to be called from a callback.
int event_loop(int once);

// Makes event_loop() return; no further callback of the current cycle starts. Any thread and signal
// handlers may call it. It does not end a wait: a loop that waits notices when a timer, a
// descriptor or a signal handled on its own thread ends the wait.
void exit_event_loop();

// Non-zero from exit_event_loop() until the next event_loop() call. Read-only for users; what is
// read while another thread may end the loop can be old.
extern int end_loop;

// Whether the calling thread may do what is the loop thread's: it runs the loop, or nobody does.
// For asserts.
bool is_loop_thread();

// The add operations may be called from any thread and leave the event enabled, unless they are
// given EVENT_ASLEEP. `flags` is this, EVENT_ONESHOT, both or 0 (EVENT_ENABLED is tolerated). `arg`
// is handed to the callback and not owned. They return null, having added nothing, when memory is
// short.

// `fd` must lie in 0..1023 (null otherwise) and stay open until the event is removed: remove it in
// the callback that closes the descriptor. A closed one left in the loop keeps every descriptor
// callback from running. `write` 0 waits for readability (end of file counts), any other value for
// writability. Several events may wait on one descriptor; each is called.
event *add_fd_event(int fd, int write, unsigned flags, event_callback callback, void *arg);

// Every `interval` ms (1 or more), first one interval from now; each due time counts from the
// previous one.
event *add_timer_event(int interval, unsigned flags, event_callback callback, void *arg);

// Once, at the absolute time *when, which is copied; a past one is due at once.
event *add_alarm_event(const timeval *when, unsigned flags, event_callback callback, void *arg);

// On every cycle; while one is enabled the loop never waits.
event *add_always_event(unsigned flags, event_callback callback, void *arg);

// Drop the pointer with this call; the loop frees the event at the end of a cycle. Called on the
// loop thread, or while no loop runs, no callback of the event starts any more. Called on another
// thread, one may still start or be running in the current cycle, so what `arg` points to and the
// descriptor must outlast it. Null is ignored.
void remove_event(event *handle);

// Any thread. Disabling takes effect from the next cycle on. A timer keeps its due time while it is
// disabled. Nothing else is ordered by it: a lock has to guard what the callback reads.
void set_event_enabled(event *handle, int on);
int get_event_enabled(const event *handle);

// Loop thread. Moves a timer to *when or, with null, by one interval: from its due time when
// enabled, from now when not. The event is enabled and no longer removed afterwards. *when is an
// absolute time like an alarm's; the beat goes on from it.
void resched_event(event *timer, const timeval *when);

// Loop thread. Stores the period in ms; an enabled timer is also moved by one new interval.
void set_event_interval(event *timer, int ms);

// For code that keeps event lists of its own (soft queues do), under its own lock: unlinks and
// frees the events marked removed.
void strip_events(event **head);

// An event on no list, without type and flags, the caller's until it is put on one; null when
// memory is short.
event *new_event(event_callback callback, void *arg);
