#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// How the daemon does, as it says itself when it is asked. docs/client.md has the keys.
struct DaemonStatus {
    enum class Answer {
        Answered,
        Gone, // no daemon runs
        None, // one runs, but does not answer: it hangs
        Deaf, // one runs, but takes no requests: it starts or ends, or its FIFO is gone or closed
        Unwritten, // it lives and takes requests, but its status cannot be written
        Refused    // this process may not ask, or what stands there is no daemon's
    };

    // The value; empty when there is no such key.
    std::string_view value(std::string_view key) const;

    Answer answer;
    std::string reason;                                     // for people, unless answered
    std::vector<std::pair<std::string, std::string>> lines; // keys and values, when answered
};

// Asks the daemon whose run directory this is, and waits for its answer, `patience` at most.
// Several may ask at the same time. SIGPIPE has to be ignored: the daemon may end just then. Throws
// std::bad_alloc.
DaemonStatus ask_daemon_status(const std::string &directory,
                               std::chrono::milliseconds patience = std::chrono::seconds(2));
