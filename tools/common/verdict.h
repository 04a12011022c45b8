#pragma once

#include "ipc/client/daemon_status.h"
#include "tools/common/exit_status.h"

#include <string>

// What a daemon's status comes to: how a program ends that has asked for it, and a word to people.
struct Verdict {
    ExitStatus status; // 0: it is well
    std::string text;
};

Verdict judge(const DaemonStatus &status);
