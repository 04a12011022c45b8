#pragma once

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

    // What the client has received since the last call, a record each.
    std::vector<std::string> records()
    {
        std::vector<std::string> all;
        do {
            cycle();
            client->receive();
        } while (server->clients->send.count > 0);
        for (std::string &stream = client->received; !stream.empty();) {
            std::uint32_t length = 0;
            stream.copy(reinterpret_cast<char *>(&length), sizeof length);
            all.push_back(stream.substr(sizeof length, length));
            stream.erase(0, sizeof length + length);
        }
        return all;
    }

    sck_svr_t *server = nullptr;
    std::optional<LoopClient> client;
};
