#pragma once

#include "event/loop.h"

// How events begin and end outside the loop's lists. Private to event/.

namespace va
{

// An event on no list, with the flags that the add operations give for `flags`; null when memory is
// short.
event *make_event(std::int32_t type, unsigned flags, event_callback callback, void *arg);

// Ends one that is on no list.
void free_event(event *made);

} // namespace va
