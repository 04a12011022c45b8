#pragma once

#include <cstdint>

// How events begin and end outside the loop's lists. Private to event/.

struct event;
struct event_info;

namespace va
{

// An event on no list, with the flags that the add operations give for `flags`; null when memory is
// short.
event *make_event(std::int32_t type, unsigned flags,
                  std::int32_t (*callback)(event_info *info, void *arg), void *arg);

// Ends one that is on no list.
void free_event(event *made);

} // namespace va
