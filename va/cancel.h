#pragma once

#include "va/va.h"

// Main thread, at shutdown: calls `cancel_data` every 100 ms until it returns 0 or the processing
// thread has ended; at least once. Returns 0.
int va_cancel(const VaContext *context, int (*cancel_data)());
