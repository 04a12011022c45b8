#include "event/event.h"
#include "ipc/msg/msgcmd.h"
#include "ipc/network/socket.h"

#include <cinttypes>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include <unistd.h>

// Prints the objects that the daemon detects, a line each, until the stream ends or Ctrl-C.

namespace
{

constexpr char usage[] =
    "usage: od_client [-c control-socket] [-n records] [object-socket]\n"
    "    object-socket      of the daemon, default /tmp/va_info/od\n"
    "    -n records         end after this many\n"
    "    -c control-socket  send \"reconfig\" there first: to a control-message server in socket\n"
    "                       mode. The daemon's own is a FIFO, which needs no client:\n"
    "                       echo reconfig > /tmp/va_info/ctrl\n";

constexpr std::string_view command = "reconfig\n";
constexpr unsigned queue_size = 4096;
constexpr int cycle_ms = 100; // bounds the delay of a stop request

// A frame is its payload's length, then the payload: the objects, in the layout of the chip.
constexpr std::size_t length_size = sizeof(std::uint32_t);
constexpr std::size_t object_words = 10;
constexpr std::size_t object_size = object_words * sizeof(std::uint32_t);
constexpr std::uint32_t max_payload = 64 * 1024; // no longer record is sent
constexpr std::size_t read_size = 4096;

struct Options {
    const char *objects = "/tmp/va_info/od";
    const char *control = nullptr;
    unsigned long records = 0; // 0: no end
};

struct Stream {
    std::vector<std::uint8_t> received; // starts with a frame's length
    unsigned long records_left;
    int status = EXIT_SUCCESS;
};

std::uint32_t word_at(const std::uint8_t *bytes)
{
    std::uint32_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

void print_objects(const std::uint8_t *payload, std::size_t length)
{
    const std::size_t count = length / object_size;
    std::printf("%zu object(s)\n", count);
    for (std::size_t object = 0; object < count; ++object) {
        for (std::size_t word = 0; word < object_words; ++word)
            std::printf(" %" PRIu32, word_at(payload + object * object_size + word * 4));
        std::putchar('\n');
    }
}

void end_stream(Stream &stream, const char *reason)
{
    std::fprintf(stderr, "od_client: %s\n", reason);
    stream.status = EXIT_FAILURE;
    exit_event_loop();
}

// Prints the complete frames and keeps the rest.
void take_frames(Stream &stream)
{
    const std::uint8_t *const start = stream.received.data();
    std::size_t at = 0;
    while (stream.received.size() - at >= length_size) {
        const std::uint32_t length = word_at(start + at);
        if (length > max_payload)
            return end_stream(stream, "this is no object stream");
        if (stream.received.size() - at - length_size < length)
            break;
        print_objects(start + at + length_size, length);
        at += length_size + length;
        if (stream.records_left != 0 && --stream.records_left == 0)
            return exit_event_loop();
    }
    stream.received.erase(stream.received.begin(),
                          stream.received.begin() + static_cast<std::ptrdiff_t>(at));
}

std::int32_t read_stream(event_info *info, void *arg)
{
    auto &stream = *static_cast<Stream *>(arg);
    std::uint8_t bytes[read_size];
    const ssize_t got = read(info->event->fd, bytes, sizeof bytes);
    if (got <= 0) {
        remove_event(info->event);
        end_stream(stream, "the stream has ended");
        return 0;
    }
    stream.received.insert(stream.received.end(), bytes, bytes + got);
    take_frames(stream);
    return 0;
}

void print_answer(int count, const void *data, void *)
{
    if (count > 0)
        std::printf("answer: %.*s", count, static_cast<const char *>(data));
}

bool send_reconfig(msgcmd **control, const char *path)
{
    if (msgcmd_init(control, path, queue_size) == -1)
        return false;
    msgcmd_setcb(*control, print_answer, nullptr, nullptr);
    if (msgcmd_noblock_write(*control, command.data(), command.size()) == 0)
        return true;
    std::fprintf(stderr, "od_client: nobody listens at %s\n", path);
    return false;
}

bool parse(int argc, char **argv, Options &options)
{
    for (int option; (option = getopt(argc, argv, "c:n:")) != -1;) {
        if (option == 'c')
            options.control = optarg;
        else if (option == 'n')
            options.records = std::strtoul(optarg, nullptr, 10);
        else
            return false;
    }
    if (optind < argc)
        options.objects = argv[optind++];
    return optind == argc;
}

int run(const Options &options)
{
    int objects = -1;
    if (unix_domain_socket_connect(&objects, options.objects) == -1) {
        std::fprintf(stderr, "od_client: nobody listens at %s\n", options.objects);
        return EXIT_FAILURE;
    }
    Stream stream{{}, options.records};
    msgcmd *control = nullptr;
    if ((options.control && !send_reconfig(&control, options.control)) ||
        !add_fd_event(objects, 0, 0, read_stream, &stream) ||
        !add_timer_event(
            cycle_ms, 0, [](event_info *, void *) { return 0; }, nullptr)) {
        stream.status = EXIT_FAILURE;
    } else {
        std::signal(SIGINT, [](int) { exit_event_loop(); });
        event_loop(0);
    }
    msgcmd_release(&control);
    close(objects);
    return stream.status;
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    if (!parse(argc, argv, options)) {
        std::fputs(usage, stderr);
        return EXIT_FAILURE;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    return run(options);
}
