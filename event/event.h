#pragma once

// The event loop, and the soft queues that carry items into it.
#include "event/loop.h"
#include "event/soft_queue.h"
