#pragma once

#include "ipc/client/daemon_status.h"
#include "tools/common/events.h"

#include <vector>

// What the bits of the alarm masks stand for, as the daemon says it; empty when it does not.
std::vector<AlarmRule> rules_of(const DaemonStatus &status);
