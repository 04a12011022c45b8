#pragma once

#include "client/frame_reader.h"
#include "ipc/network/sck_svr.h"
#include "tests/support/ipc_loop.h"

#include <optional>

// A result server in this process, with one client.
struct LocalStream {
    LocalStream(const std::string &path, std::uint32_t size)
    {
        sck_svr_init(&server, path.c_str(), size);
        client.emplace(path);
    }
    ~LocalStream() { sck_svr_release(&server); }

    // What the client has received since the last call, a record each. Its reader gets byte after
    // byte, the worst that a stream may do to it.
    std::vector<std::string> records()
    {
        std::vector<std::string> all;
        std::span<const std::uint8_t> payload;
        do {
            cycle();
            for (const char arriving : arrived(client->fd)) {
                const auto byte = static_cast<std::uint8_t>(arriving);
                reader.append({&byte, 1});
                if (reader.next(payload) == va::FrameReader::Result::Frame)
                    all.emplace_back(payload.begin(), payload.end());
            }
        } while (server->clients->send.count > 0);
        return all;
    }

    sck_svr_t *server = nullptr;
    std::optional<LoopClient> client;
    va::FrameReader reader;
};
