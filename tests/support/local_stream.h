#pragma once

#include "event/event.h"
#include "ipc/network/sck_svr.h"
#include "tests/support/daemon.h"

#include <memory>
#include <string>
#include <vector>

#include <sys/socket.h>

// A result server in this process, with one client.
class LocalStream
{
public:
    LocalStream(const std::string &path, std::uint32_t size)
    {
        sck_svr_init(&server, path.c_str(), size);
        client_ = std::make_unique<Client>(path);
        while (sck_svr_get_client_count(server) < 1)
            cycle();
    }
    ~LocalStream()
    {
        sck_svr_release(&server);
        cycle();
    }
    LocalStream(const LocalStream &) = delete;
    LocalStream &operator=(const LocalStream &) = delete;

    // What the client has received since the last call, a record each.
    std::vector<std::string> records()
    {
        std::string stream;
        do {
            cycle();
        } while (receive(stream) || server->clients->send.count > 0);
        std::vector<std::string> all;
        for (std::size_t at = 0; at < stream.size();) {
            std::uint32_t length = 0;
            stream.copy(reinterpret_cast<char *>(&length), sizeof length, at);
            all.push_back(stream.substr(at + sizeof length, length));
            at += sizeof length + length;
        }
        return all;
    }

    sck_svr_t *server = nullptr;

private:
    static void cycle()
    {
        add_always_event(
            EVENT_ONESHOT, [](event_info *, void *) { return 0; }, nullptr);
        event_loop(1);
    }

    bool receive(std::string &stream) const
    {
        char chunk[4096];
        const ssize_t got = recv(client_->fd(), chunk, sizeof chunk, MSG_DONTWAIT);
        if (got > 0)
            stream.append(chunk, static_cast<std::size_t>(got));
        return got > 0;
    }

    std::unique_ptr<Client> client_;
};
