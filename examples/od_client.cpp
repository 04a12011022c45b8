#include "client/run_dir.h"
#include "client/stream_client.h"
#include "records/records.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include <poll.h>

// usage: od_client [directory]
// Prints the objects that the daemon detects, a line each, until Ctrl-C; reconnects whenever the
// daemon is restarted.

namespace
{

constexpr int retry_ms = 200;

void print_objects(std::span<const std::uint8_t> payload)
{
    std::uint32_t object[OD_ENTRY_SIZE / sizeof(std::uint32_t)]; // the words are the chip's
    std::printf("%zu object(s)\n", payload.size() / sizeof object);
    for (; payload.size() >= sizeof object; payload = payload.subspan(sizeof object)) {
        std::memcpy(object, payload.data(), sizeof object);
        for (const std::uint32_t word : object)
            std::printf(" %u", word);
        std::putchar('\n');
    }
}

// Reports each change of the connection once.
void say_status(const va::StreamClient &client)
{
    static std::string said;
    if (client.status() == said)
        return;
    said = client.status();
    std::fprintf(stderr, "od_client: %s\n", said.c_str());
}

} // namespace

int main(int argc, char **argv)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const std::string directory = argc > 1 ? argv[1] : VAIPC_RUN_DIR;
    va::StreamClient client(directory + "/od");
    for (;;) {
        client.connect();
        say_status(client);
        pollfd polled{client.fd(), POLLIN, 0};
        if (poll(&polled, 1, retry_ms) <= 0)
            continue;
        client.receive([](std::span<const std::uint8_t> payload) {
            print_objects(payload);
            return true; // go on
        });
        say_status(client);
    }
}
