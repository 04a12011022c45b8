#include "event/event.h"
#include "ipc/msg/msg.h"

#include <cassert>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

// Whatever is written into the control FIFO, in pieces of any size: callbacks get whole items, and
// the server can be released and started again.

namespace
{

int check_item(void *, const char *item, int length)
{
    assert(length >= 0 && length < MSG_BUFFER_SIZE);
    assert(item[0] == '$' || static_cast<int>(std::strlen(item)) == length);
    return 0;
}

void cycle()
{
    add_always_event(
        EVENT_ONESHOT, [](event_info *, void *) { return 0; }, nullptr);
    event_loop(1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    constexpr msg_conf conf{"control_fuzz.fifo", MSG_FIFO};
    std::signal(SIGPIPE, SIG_IGN); // as the daemon does: the server may close its end
    msg_handle *server = nullptr;
    if (msg_init(&server, conf) != 0 ||
        msg_register(server, "reconfig", check_item, nullptr) != 0 ||
        msg_registerExtend(server, check_item, nullptr) != 0 ||
        msg_registerOthers(server, check_item, nullptr) != 0 || msg_start(server) != 0)
        std::abort();
    const int writer = open(conf.path, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    // Each piece is announced by a byte: its length.
    while (size > 0) {
        const std::size_t piece = data[0] < size ? data[0] : size - 1;
        if (write(writer, data + 1, piece) < 0) // closed by the server, as it may
            break;
        data += piece + 1;
        size -= piece + 1;
        cycle();
    }
    close(writer);
    msg_release(&server);
    return 0;
}
