#pragma once

// Lists that are linked through `prev` and `next`, with a head pointer alone. Private to event/.

namespace va
{

template <class Node>
void push_front(Node **list, Node *node)
{
    node->prev = nullptr;
    node->next = *list;
    if (*list)
        (*list)->prev = node;
    *list = node;
}

// Links the nodes of `*front`, in their order, before those of `*list`, and empties it.
template <class Node>
void splice_front(Node **list, Node **front)
{
    Node *last = *front;
    if (!last)
        return;
    while (last->next)
        last = last->next;
    last->next = *list;
    if (*list)
        (*list)->prev = last;
    *list = *front;
    *front = nullptr;
}

} // namespace va
