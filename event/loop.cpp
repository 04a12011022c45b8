#include "event/loop.h"

#include "event/internal.h"
#include "util/guarded.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cstdint>
#include <new>
#include <utility>

#include <pthread.h>
#include <sys/select.h>

int end_loop;

namespace
{

// What an event has besides the described record, which it is allocated with.
struct Event : event {
    bool given; // the timer's due time was given: it does not follow a clock that is set back
};

Event *own(event *entry)
{
    return static_cast<Event *>(entry);
}

constexpr int no_timeout = -1;

// Innermost lock of the process: nothing else is locked while it is held.
pthread_mutex_t event_mutex = PTHREAD_MUTEX_INITIALIZER;
// The three pending lists, newest first like the loop's own.
event *tmp_fd_event_list VA_GUARDED_BY(event_mutex);
event *tmp_time_event_list VA_GUARDED_BY(event_mutex);
event *tmp_always_event_list VA_GUARDED_BY(event_mutex);

event *fd_event_list; // the loop thread's lists
event *time_event_list;
event *always_event_list;
timeval cycle_start; // the clock as the current cycle read it; loop thread only

// Set after an event was marked removed: the loop's lists may hold one to strip.
std::atomic<bool> any_removed{false};

// For asserts, which debug builds have.
std::atomic<bool> loop_runs{false};
thread_local bool runs_loop = false;

// Without a barrier: the bits say what to do, the locks of those who set them guard what it is
// done with.
std::uint32_t flags_of(const event *entry)
{
    return va::load_shared(entry->flags, std::memory_order_relaxed);
}

bool has_flag(const event *entry, std::uint32_t flag)
{
    return (flags_of(entry) & flag) != 0;
}

// In one step, so that a bit another thread changes meanwhile is kept.
void change_flags(event *entry, std::uint32_t set, std::uint32_t clear)
{
    std::uint32_t flags = flags_of(entry);
    while (!va::shared(entry->flags).compare_exchange_weak(flags, (flags | set) & ~clear)) {
    }
}

// Returns `added`; null, for want of memory, is added to nothing.
event *add(event **pending, event *added)
{
    if (added) {
        const va::ScopedLock lock(event_mutex);
        va::push_front(pending, added);
    }
    return added;
}

bool loop_is_to_end()
{
    return va::load_shared(end_loop) != 0;
}

// Links the events of `*pending`, in their order, before those of `*list`, and empties it.
void splice(event **list, event **pending)
{
    event *last = *pending;
    if (!last)
        return;
    while (last->next)
        last = last->next;
    last->next = *list;
    if (*list)
        (*list)->prev = last;
    *list = std::exchange(*pending, nullptr);
}

void take_in_pending()
{
    const va::ScopedLock lock(event_mutex);
    splice(&fd_event_list, &tmp_fd_event_list);
    splice(&time_event_list, &tmp_time_event_list);
    splice(&always_event_list, &tmp_always_event_list);
}

// Arms the events this cycle may dispatch. Returns whether `entry` is one of them. From cycle to
// cycle hardly a bit changes, and a locked instruction costs more than the remaining walk.
bool arm(event *entry)
{
    switch (flags_of(entry) & (EVENT_ENABLED | EVENT_ARMED | EVENT_REMOVED)) {
    case EVENT_ENABLED | EVENT_ARMED:
        return true;
    case EVENT_ENABLED:
        va::shared(entry->flags) |= EVENT_ARMED;
        return true;
    case 0:
        return false;
    case EVENT_ARMED:
        break;
    default:
        any_removed = true; // by its bit, or while pending, where no strip pass looked
        break;
    }
    va::shared(entry->flags) &= ~EVENT_ARMED;
    return false;
}

// Milliseconds until the first due time, or no_timeout. One reading of the clock serves the step
// check and the timeout, so that no step slips in between.
int arm_timers()
{
    timeval now{};
    time_now(&now);
    const timeval previous = std::exchange(cycle_start, now);
    int timeout = no_timeout;
    for (event *timer = time_event_list; timer; timer = timer->next) {
        timer->when =
            va::follow_clock(timer->when, timer->interval, own(timer)->given, now, previous);
        if (!arm(timer))
            continue;
        const int remaining = va::remaining_ms(timer->when, now);
        timeout = timeout == no_timeout ? remaining : std::min(timeout, remaining);
    }
    return timeout;
}

// Whether there is one for this cycle.
bool arm_always()
{
    bool any = false;
    for (event *always = always_event_list; always; always = always->next)
        any |= arm(always);
    return any;
}

struct DescriptorSets {
    fd_set read;
    fd_set write;
    int ready; // select's result

    bool has(const event *entry) const
    {
        return FD_ISSET(entry->fd, entry->write ? &write : &read);
    }
};

// Arms the descriptors and waits for them, at most `timeout` ms.
void wait_ready(DescriptorSets &sets, int timeout)
{
    FD_ZERO(&sets.read);
    FD_ZERO(&sets.write);
    int count = 0;
    for (event *entry = fd_event_list; entry; entry = entry->next) {
        if (!arm(entry))
            continue;
        FD_SET(entry->fd, entry->write ? &sets.write : &sets.read);
        count = std::max(count, entry->fd + 1);
    }
    timeval limit{timeout / 1000, suseconds_t{timeout % 1000} * 1000};
    sets.ready =
        select(count, &sets.read, &sets.write, nullptr, timeout == no_timeout ? nullptr : &limit);
}

void mark_removed(event *entry, std::uint32_t cleared_flags = 0)
{
    change_flags(entry, EVENT_REMOVED, cleared_flags);
    any_removed = true;
}

bool is_due(const event *timer)
{
    timeval now{};
    time_now(&now);
    return va::remaining_ms(timer->when, now) == 0;
}

void start_next_period(event *timer)
{
    time_add(&timer->when, timer->interval);
    own(timer)->given = false;
}

template <class Ready>
void dispatch(event *list, Ready ready)
{
    for (event *entry = list; entry && !loop_is_to_end(); entry = entry->next) {
        if (!has_flag(entry, EVENT_ARMED) || !ready(entry))
            continue;
        // Before the callback, so that it may set another interval, or another due time. Not with
        // resched_event(), which would enable a timer that was disabled since it was armed.
        if (has_flag(entry, EVENT_ONESHOT))
            mark_removed(entry);
        else if (entry->type == EVENT_TIMER)
            start_next_period(entry);
        event_info info{entry, entry->type, 0};
        entry->callback(&info, entry->arg);
    }
}

void strip_removed()
{
    // Cleared before the passes, so that one marked behind them has the next.
    if (!any_removed || !any_removed.exchange(false))
        return;
    strip_events(&time_event_list);
    strip_events(&fd_event_list);
    strip_events(&always_event_list);
}

void run_cycle()
{
    take_in_pending();
    const int timer_timeout = arm_timers();
    const bool always_due = arm_always();
    DescriptorSets sets;
    wait_ready(sets, always_due ? 0 : timer_timeout);
    dispatch(time_event_list, is_due);
    dispatch(always_event_list, [](const event *) { return true; });
    if (sets.ready > 0)
        dispatch(fd_event_list, [&](const event *entry) { return sets.has(entry); });
    strip_removed();
}

} // namespace

int event_loop(int once)
{
    assert(!loop_runs && "a loop runs already, perhaps the one that calls back");
    loop_runs = runs_loop = true;
    va::shared(end_loop) = 0;
    do {
        run_cycle();
    } while (!once && !loop_is_to_end());
    loop_runs = runs_loop = false;
    return once | va::load_shared(end_loop);
}

void exit_event_loop()
{
    va::shared(end_loop) = 1;
}

bool is_loop_thread()
{
    return runs_loop || !loop_runs;
}

event *add_fd_event(int fd, int write, unsigned flags, event_callback callback, void *arg)
{
    if (fd < 0 || fd >= FD_SETSIZE)
        return nullptr;
    event *added = va::make_event(EVENT_FD, flags, callback, arg);
    if (added) {
        added->fd = fd;
        added->write = write;
    }
    return add(&tmp_fd_event_list, added);
}

event *add_timer_event(int interval, unsigned flags, event_callback callback, void *arg)
{
    assert(interval >= 1);
    event *added = va::make_event(EVENT_TIMER, flags, callback, arg);
    if (added) {
        added->interval = interval;
        time_future(&added->when, interval);
    }
    return add(&tmp_time_event_list, added);
}

event *add_alarm_event(const timeval *when, unsigned flags, event_callback callback, void *arg)
{
    event *added = va::make_event(EVENT_TIMER, flags | EVENT_ONESHOT, callback, arg);
    if (added) {
        added->when = *when;
        own(added)->given = true;
    }
    return add(&tmp_time_event_list, added);
}

event *add_always_event(unsigned flags, event_callback callback, void *arg)
{
    return add(&tmp_always_event_list, va::make_event(EVENT_ALWAYS, flags, callback, arg));
}

void remove_event(event *handle)
{
    if (handle)
        mark_removed(handle, EVENT_ENABLED | EVENT_ARMED);
}

// The test before the change keeps a sender that asks for each of its records off the locked
// instruction. Two threads that disagree without a lock between them get one order or the other.
void set_event_enabled(event *handle, int on)
{
    if (get_event_enabled(handle) == (on != 0))
        return;
    if (on)
        va::shared(handle->flags) |= EVENT_ENABLED;
    else
        va::shared(handle->flags) &= ~EVENT_ENABLED;
}

int get_event_enabled(const event *handle)
{
    return has_flag(handle, EVENT_ENABLED);
}

void resched_event(event *timer, const timeval *when)
{
    assert(timer->type == EVENT_TIMER && is_loop_thread());
    if (when) {
        timer->when = *when;
        own(timer)->given = true;
    } else if (get_event_enabled(timer)) {
        time_add(&timer->when, timer->interval);
    } else {
        time_future(&timer->when, timer->interval);
        own(timer)->given = false;
    }
    change_flags(timer, EVENT_ENABLED, EVENT_REMOVED);
}

void set_event_interval(event *timer, int ms)
{
    assert(timer->type == EVENT_TIMER && ms >= 1 && is_loop_thread());
    timer->interval = ms;
    if (get_event_enabled(timer))
        resched_event(timer, nullptr);
}

void strip_events(event **head)
{
    event *next = nullptr;
    for (event *entry = *head; entry; entry = next) {
        next = entry->next;
        // With the barrier: the thread that removed it has done with it.
        if (!(va::load_shared(entry->flags, std::memory_order_acquire) & EVENT_REMOVED))
            continue;
        va::unlink_node(head, entry);
        va::free_event(entry);
    }
}

event *new_event(event_callback callback, void *arg)
{
    auto *created = new (std::nothrow) Event{};
    if (created) {
        created->callback = callback;
        created->arg = arg;
    }
    return created;
}

event *va::make_event(std::int32_t type, unsigned flags, event_callback callback, void *arg)
{
    event *made = new_event(callback, arg);
    if (made) {
        made->type = type;
        made->flags =
            flags & EVENT_ASLEEP ? flags & ~(EVENT_ASLEEP | EVENT_ENABLED) : flags | EVENT_ENABLED;
    }
    return made;
}

void va::free_event(event *made)
{
    delete own(made);
}
