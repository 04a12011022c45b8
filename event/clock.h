#pragma once

#include <sys/time.h>

// The time on the wall clock. Stateless; any thread.
//
// Milliseconds; differences wrap beyond 35 minutes, are rounded to the nearest when positive
// (halves up) and cut when negative.

int time_now(timeval *now);              // gettimeofday's result
void time_add(timeval *time, int ms);    // ms >= 0
void time_future(timeval *time, int ms); // now + ms
int time_diff(const timeval *from, const timeval *to);
int time_ago(const timeval *time); // positive for a past time
