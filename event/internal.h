#pragma once

#include "util/fd.h"

#include <cstdint>

#include <sys/time.h>

// What the parts of this tree need of events beyond what users see. Private to it, like util/fd.h.

struct event;
struct event_info;
void remove_event(event *handle);

namespace va
{

// An event that is removed with what owns it.
using EventOwner = Owner<event, remove_event>;

// An event on no list, with the flags that the add operations give for `flags`; null when memory is
// short. free_event() ends one that is on no list.
event *make_event(std::int32_t type, unsigned flags,
                  std::int32_t (*callback)(event_info *info, void *arg), void *arg);
void free_event(event *made);

// Lists that are linked through `prev` and `next`, with a head pointer alone.

template <class Node>
void push_front(Node **list, Node *node)
{
    node->prev = nullptr;
    node->next = *list;
    if (*list)
        (*list)->prev = node;
    *list = node;
}

template <class Node>
void unlink_node(Node **list, const Node *node)
{
    if (node->next)
        node->next->prev = node->prev;
    if (node->prev)
        node->prev->next = node->next;
    else
        *list = node->next;
}

// When a timer is due, whatever the clock does. Pure functions of the times they are given.

// Milliseconds from `now` to `when`: 0 when it is past or so near that it is served now rather than
// after another wait, and at most some 35 minutes.
int remaining_ms(const timeval &when, const timeval &now);

// The due time of a timer of `interval` ms after the clock has gone from `previous`, as the last
// cycle read it, to `now`. A due time that was given stays, unless the clock has left it far
// behind.
timeval follow_clock(const timeval &when, int interval, bool given, const timeval &now,
                     const timeval &previous);

} // namespace va
