#pragma once

#include "tools/common/output.h"
#include "tools/common/source.h"

// Hands on what the daemon sends, until the count is reached, the time is up, nobody reads standard
// output any more, or SIGINT or SIGTERM comes. Says on standard error what becomes of the
// connections. Returns the end.
Moment watch(const Source &source, Output &output);
