#pragma once

#include "event/event_owner.h"

// A connection that could not be accepted stays pending and keeps its listener readable: the loop
// would come back to it at once, over and over. So the listener rests after a failed accept, and
// the connection is tried again 100 ms later. Loop thread. Private to ipc/.

namespace va
{

// The timer that wakes the listener of `accept_event`, asleep itself; null when memory is short.
// Made beforehand, since an accept fails when resources are short. To be removed with the
// listener's event.
EventOwner add_rest_timer(event *accept_event);

// Takes the listener off the loop until the timer wakes it.
void rest_listener(event *rest_timer);

} // namespace va
