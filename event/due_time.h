#pragma once

#include <sys/time.h>

// When a timer is due, whatever the clock does. Pure functions of the times they are given; private
// to event/.

namespace va
{

// Milliseconds from `now` to `when`: 0 when it is past or so near that it is served now rather than
// after another wait, and at most some 35 minutes.
int remaining_ms(const timeval &when, const timeval &now);

// The due time of a timer of `interval` ms after the clock has gone from `previous`, as the last
// cycle read it, to `now`. A due time that was given stays, unless the clock has left it far
// behind.
timeval follow_clock(const timeval &when, int interval, bool given, const timeval &now,
                     const timeval &previous);

} // namespace va
