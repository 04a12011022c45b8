#include "ipc/client/run_dir.h"
#include "ipc/client/stream_client.h"
#include "tools/record_text.h"

#include <atomic>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include <poll.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

using Clock = std::chrono::steady_clock;

// Between two attempts to connect, and the bound on the delay of a stop request that arrives just
// before poll().
constexpr std::chrono::milliseconds retry_interval{200};

constexpr char usage[] =
    "usage: va_dump [-x] [-d directory] [-n count] [stream...]\n"
    "Prints the records of the video-analytics daemon, one line each:\n"
    "    local time, stream, payload length in bytes, payload\n"
    "The payload is printed in 32-bit words; \" | \" parts its entries:\n"
    "    od   objects, 10 words each\n"
    "    vmf  alarm masks of the event codes 0, 1, 2, 3\n"
    "    fd   faces, 7 words each\n"
    "    ta   tamper result, 4 words\n"
    "Without a stream, all four. Sockets that do not exist yet are waited for.\n"
    "    -d directory  of the sockets, default " VAIPC_RUN_DIR "\n"
    "    -n count      end after this many records\n"
    "    -x            words in hexadecimal, 8 digits, instead of decimal\n";

struct Options {
    Base base = Base::Decimal;
    std::string directory = VAIPC_RUN_DIR;
    std::uint64_t count = std::numeric_limits<std::uint64_t>::max();
    std::vector<const StreamKind *> streams;
    bool help = false;
};

std::atomic<bool> stop_requested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "written by a signal handler");

void request_stop(int)
{
    stop_requested = true;
}

void install_stop_handler()
{
    struct sigaction action = {};
    action.sa_handler = request_stop; // without SA_RESTART: a blocked call must return
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool parse_count(const char *text, std::uint64_t &count)
{
    const char *end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, count);
    return error == std::errc() && stop == end && count > 0;
}

bool fits_socket_address(const std::string &directory)
{
    constexpr std::size_t longest_name = sizeof "/vmf"; // with the terminator
    return directory.size() + longest_name <= sizeof(sockaddr_un::sun_path);
}

bool parse_streams(char **names, Options &options)
{
    for (; *names; ++names) {
        options.streams.push_back(find_stream(*names));
        if (!options.streams.back()) {
            std::fprintf(stderr, "va_dump: no stream is called %s\n", *names);
            return false;
        }
    }
    if (options.streams.empty()) {
        for (const StreamKind &kind : STREAM_KINDS)
            options.streams.push_back(&kind);
    }
    return true;
}

// Nothing when the command line is wrong, which is then said on standard error.
std::optional<Options> parse_options(int argc, char **argv)
{
    Options options;
    for (int option; (option = getopt(argc, argv, "d:hn:x")) != -1;) {
        switch (option) {
        case 'd':
            options.directory = optarg;
            break;
        case 'h':
            options.help = true;
            return options;
        case 'n':
            if (parse_count(optarg, options.count))
                break;
            std::fprintf(stderr, "va_dump: %s is no count\n", optarg);
            return std::nullopt;
        case 'x':
            options.base = Base::Hexadecimal;
            break;
        default:
            return std::nullopt;
        }
    }
    if (!fits_socket_address(options.directory)) {
        std::fprintf(stderr, "va_dump: the directory's name is too long for a socket\n");
        return std::nullopt;
    }
    if (!parse_streams(argv + optind, options))
        return std::nullopt;
    return options;
}

// One stream: what became of its connection is said on standard error whenever it changes.
class Stream
{
public:
    Stream(const StreamKind &kind, const std::string &directory)
        : kind_(kind), client_(directory + "/" + std::string(kind.name))
    {
    }

    int fd() const { return client_.fd(); }

    void connect()
    {
        client_.connect();
        tell();
    }

    // Prints the records of the next read; counts `remaining` down.
    void print_records(Base base, std::uint64_t &remaining)
    {
        client_.receive([&](std::span<const std::uint8_t> payload) {
            std::puts(record_text(kind_, payload, base).c_str());
            return --remaining != 0;
        });
        tell();
    }

private:
    void tell()
    {
        if (client_.status() == told_)
            return;
        told_ = client_.status();
        std::fprintf(stderr, "va_dump: %s: %s\n", kind_.name.data(), told_.c_str());
    }

    const StreamKind &kind_;
    StreamClient client_;
    std::string told_;
};

std::vector<Stream> make_streams(const Options &options)
{
    std::vector<Stream> streams;
    for (const StreamKind *kind : options.streams)
        streams.emplace_back(*kind, options.directory);
    return streams;
}

// Until a stop request, or until `count` records are printed. Returns false when the lines could
// not be written.
bool dump(const Options &options)
{
    std::vector<Stream> streams = make_streams(options);
    std::vector<pollfd> polled(streams.size());
    std::uint64_t remaining = options.count;
    Clock::time_point next_attempt{};
    while (!stop_requested && remaining != 0 && !std::ferror(stdout)) {
        if (Clock::now() >= next_attempt) {
            for (Stream &stream : streams)
                stream.connect();
            next_attempt = Clock::now() + retry_interval;
        }
        // poll() passes over the descriptor -1.
        for (std::size_t i = 0; i < streams.size(); ++i)
            polled[i] = {streams[i].fd(), POLLIN, 0};
        if (poll(polled.data(), polled.size(), static_cast<int>(retry_interval.count())) <= 0)
            continue;
        for (std::size_t i = 0; i < streams.size() && remaining != 0; ++i) {
            if (polled[i].revents)
                streams[i].print_records(options.base, remaining);
        }
    }
    return !std::ferror(stdout);
}

int run(int argc, char **argv)
{
    const std::optional<Options> options = parse_options(argc, argv);
    if (!options || options->help) {
        std::fputs(usage, options ? stdout : stderr);
        return options ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    install_stop_handler();
    if (dump(*options))
        return EXIT_SUCCESS;
    std::perror("va_dump: standard output");
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return run(argc, argv);
    } catch (const std::bad_alloc &) {
        std::fputs("va_dump: out of memory\n", stderr);
        return EXIT_FAILURE;
    }
}
