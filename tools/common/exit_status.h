#pragma once

// How the programs here end.
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
