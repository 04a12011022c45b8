#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// How the daemon is, as it says itself when it is asked. docs/client.md has the keys.
//
// Used by one thread each; any number of processes may ask at the same time. SIGPIPE has to be
// ignored: the daemon may end while it is asked. All throw std::bad_alloc.
namespace va
{

struct DaemonStatus {
    enum class Answer {
        Answered,
        Gone, // no daemon runs
        None, // one runs, but does not answer: it hangs
        Deaf, // one runs, but takes no requests: it starts or ends, or its FIFO is gone or closed
        Unwritten, // it lives and takes requests, but its status cannot be written
        Refused    // this process may not ask, or what stands there is no daemon's
    };

    // The value, which ends with a zero; empty when there is no such key.
    std::string_view value(std::string_view key) const;

    // The next piece of the keys that begin so, up to a dot, each once: "od" and "fd" below
    // "module.".
    std::vector<std::string> names_below(std::string_view beginning) const;

    Answer answer = Answer::None;
    std::string reason = {};                                     // for people, unless answered
    std::vector<std::pair<std::string, std::string>> lines = {}; // keys and values, when answered
};

// A question to the daemon whose run directory this is, and its answer, `timeout` later at most.
class StatusQuery
{
public:
    explicit StatusQuery(const std::string &directory,
                         std::chrono::milliseconds timeout = std::chrono::seconds(2));
    StatusQuery(StatusQuery &&) noexcept;
    StatusQuery &operator=(StatusQuery &&) noexcept;
    ~StatusQuery();

    // The answer once it is known. Never waits; call it every few milliseconds.
    std::optional<DaemonStatus> poll();

private:
    struct Request;
    std::unique_ptr<Request> request_;
};

// Asks and waits for the answer.
DaemonStatus ask_daemon_status(const std::string &directory,
                               std::chrono::milliseconds timeout = std::chrono::seconds(2));

// Has the daemon read its settings again and waits until it has. Returns its status after that; one
// that does so too late is a daemon that gives no answer. Where no status can be written the reload
// is requested all the same.
DaemonStatus reload_settings(const std::string &directory,
                             std::chrono::milliseconds timeout = std::chrono::seconds(5));

} // namespace va
