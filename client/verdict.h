#pragma once

#include "client/status.h"

#include <string>

// What a daemon's status amounts to.
namespace va
{

// How the programs end.
enum ExitStatus {
    RECORDS_CAME = 0,
    IS_WELL = 0, // the daemon
    FAILED = 1,
    USED_WRONGLY = 2,
    NO_RECORDS = 3,
    GONE = 4,         // the daemon
    NO_ANSWER = 5,    // it hangs
    NO_ANALYTICS = 6, // it runs without
    NO_STATUS = 7,    // it runs, but cannot write it
};

struct Verdict {
    ExitStatus status; // of a program that has asked for it
    std::string text;  // for people
};

// Throws std::bad_alloc.
Verdict judge(const DaemonStatus &status);

} // namespace va
