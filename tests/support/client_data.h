#pragma once

#include "client/capture.h"
#include "client/status.h"
#include "ipc/network/socket.h"
#include "util/fd.h"

#include <chrono>
#include <cstdint>
#include <span>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <poll.h>
#include <sys/socket.h>

// What a client gets, made by hand.

inline std::span<const std::uint8_t> bytes_of(const std::string &text)
{
    return {reinterpret_cast<const std::uint8_t *>(text.data()), text.size()};
}

inline std::string words(const std::vector<std::uint32_t> &words)
{
    return {reinterpret_cast<const char *>(words.data()), words.size() * sizeof words[0]};
}

inline std::string frame(const std::string &payload)
{
    return words({static_cast<std::uint32_t>(payload.size())}) + payload;
}

// Where a client connects to; nobody is behind it.
struct Listener {
    explicit Listener(const std::string &path)
    {
        int made = -1;
        unix_domain_socket_init(&made, path.c_str(), 100);
        fd = Fd(made);
    }
    // The next connection; none when none comes in time.
    Fd accept() const
    {
        pollfd connecting{fd.get(), POLLIN, 0};
        poll(&connecting, 1, 20'000);
        return Fd(accept4(fd.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    }

    Fd fd;
};

// Two objects, a line's alarm, a tamper alarm with an odd byte whose clock was set back, and object
// 7 alone two seconds later, in the result after the next.
inline void write_capture(const std::string &path)
{
    using namespace std::chrono_literals;
    const std::string seven = words({7, 3, 960, 540, 192, 108, 1056, 594, 0, 0});
    const std::string nine = words({9, 19, 5, 6, 7, 8, 8, 10, 0, 0});
    const std::tuple<const char *, std::chrono::milliseconds, std::string> records[] = {
        {"od", 1000ms, seven + nine + words({77})},
        {"vmf", 1500ms, words({0, 1, 0, 0})},
        {"ta", 1200ms, words({1, 2, 3}) + "\xab"},
        {"od", 3500ms, words({7, 3, 970, 540, 192, 108, 1066, 594, 2, 0})},
    };
    va::CaptureWriter writer(path);
    for (const auto &[stream, at, payload] : records)
        writer.write({*va::find_stream(stream), va::SystemTime(at), {}, bytes_of(payload)});
}

// A daemon's answer, of lines "KEY=VALUE" as settings have them.
inline va::DaemonStatus status_of(const std::string &text)
{
    va::DaemonStatus status{va::DaemonStatus::Answer::Answered};
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        status.lines.emplace_back(line.substr(0, line.find('=')), line.substr(line.find('=') + 1));
    return status;
}
