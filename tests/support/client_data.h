#pragma once

#include "client/status.h"

#include <cstdint>
#include <span>
#include <sstream>
#include <string>
#include <vector>

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

// A daemon's answer, of lines "KEY=VALUE" as settings have them.
inline va::DaemonStatus status_of(const std::string &text)
{
    va::DaemonStatus status{va::DaemonStatus::Answer::Answered};
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        status.lines.emplace_back(line.substr(0, line.find('=')), line.substr(line.find('=') + 1));
    return status;
}
