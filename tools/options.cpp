#include "tools/options.h"

#include "ipc/client/run_dir.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <string_view>

#include <getopt.h>
#include <sys/un.h>

namespace
{

constexpr char short_options[] = "d:hjln:qr:s:Vw:W:x";
constexpr option long_options[] = {
    {"directory", required_argument, nullptr, 'd'},
    {"help", no_argument, nullptr, 'h'},
    {"json", no_argument, nullptr, 'j'},
    {"labels", no_argument, nullptr, 'l'},
    {"count", required_argument, nullptr, 'n'},
    {"quiet", no_argument, nullptr, 'q'},
    {"read", required_argument, nullptr, 'r'},
    {"svg", required_argument, nullptr, 's'},
    {"version", no_argument, nullptr, 'V'},
    {"write", required_argument, nullptr, 'w'},
    {"seconds", required_argument, nullptr, 'W'},
    {"hexadecimal", no_argument, nullptr, 'x'},
    {nullptr, 0, nullptr, 0},
};

// Says what is wrong; returns false.
__attribute__((format(printf, 1, 2))) bool refuse(const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::fputs("va_dump: ", stderr);
    std::vfprintf(stderr, format, arguments);
    std::fputs(" (va_dump --help tells more)\n", stderr);
    va_end(arguments);
    return false;
}

// The whole text must be one number.
template <class Number>
bool parse_number(std::string_view text, Number &number)
{
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && stop == text.data() + text.size();
}

bool set_count(const char *text, Options &options)
{
    return (parse_number(text, options.count) && options.count > 0) ||
           refuse("%s is no number of records", text);
}

bool set_time_limit(const char *text, Options &options)
{
    constexpr double shortest = 0.001;
    constexpr double longest = 1e9;
    double seconds = 0;
    if (!parse_number(text, seconds) || !(seconds >= shortest && seconds <= longest))
        return refuse("%s is no number of seconds", text);
    options.time_limit = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::duration<double>(seconds));
    return true;
}

bool set_output(Options::Output output, Options &options)
{
    if (options.output != Options::Output::Text && options.output != output)
        return refuse("-j and -q exclude each other");
    options.output = output;
    return true;
}

bool set_option(int option, Options &options)
{
    switch (option) {
    case 'd':
        options.directory = optarg;
        return true;
    case 'h':
        options.request = Options::Request::Help;
        return true;
    case 'j':
        return set_output(Options::Output::Json, options);
    case 'l':
        options.style.labels = true;
        return true;
    case 'n':
        return set_count(optarg, options);
    case 'q':
        return set_output(Options::Output::Figures, options);
    case 'r':
        options.capture = optarg;
        return true;
    case 's':
        options.picture = optarg;
        return true;
    case 'V':
        options.request = Options::Request::Version;
        return true;
    case 'w':
        options.copy = optarg;
        return true;
    case 'W':
        return set_time_limit(optarg, options);
    case 'x':
        options.style.base = Base::Hexadecimal;
        return true;
    default:
        return false; // getopt has said what is wrong
    }
}

bool set_streams(char **names, Options &options)
{
    bool wanted[STREAM_COUNT] = {};
    const bool all = !*names;
    for (; *names; ++names) {
        const StreamKind *kind = find_stream(*names);
        if (!kind)
            return refuse("no stream is called %s", *names);
        wanted[index_of(*kind)] = true;
    }
    for (const StreamKind &kind : STREAM_KINDS) {
        if (all || wanted[index_of(kind)])
            options.streams.push_back(&kind);
    }
    return true;
}

bool is_consistent(const Options &options)
{
    constexpr std::size_t longest_name = sizeof "/vmf"; // with the terminator
    if (options.directory.size() + longest_name > sizeof(sockaddr_un::sun_path))
        return refuse("the directory's name is too long for a socket");
    std::error_code ignored;
    if (std::filesystem::equivalent(options.capture, options.copy, ignored))
        return refuse("-r and -w name the same file");
    return true;
}

} // namespace

const char USAGE[] =
    "usage: va_dump [option...] [stream...]\n"
    "Prints the records of the video-analytics daemon, one line each:\n"
    "    local time, stream, payload length in bytes, payload\n"
    "The payload is printed in 32-bit words; \" | \" parts its entries:\n"
    "    od   objects, 10 words each\n"
    "    vmf  alarm masks of the event codes 0, 1, 2, 3\n"
    "    fd   faces, 7 words each\n"
    "    ta   tamper result, 4 words\n"
    "Without a stream, all four. Sockets that do not exist yet are waited for.\n"
    "\n"
    "What is printed:\n"
    "  -j, --json             one JSON object a line\n"
    "  -l, --labels           the words with their names, where they are known\n"
    "  -q, --quiet            no records, but figures: at the end and on SIGUSR1\n"
    "  -x, --hexadecimal      words in hexadecimal, 8 digits, instead of decimal\n"
    "Besides:\n"
    "  -s, --svg FILE         keep a picture of settings, objects and alarms up to date\n"
    "  -w, --write FILE       write the records to FILE\n"
    "Where from, and how long:\n"
    "  -d, --directory DIR    of the sockets, default " VAIPC_RUN_DIR "\n"
    "  -r, --read FILE        the records of a file that -w wrote, instead of the daemon's\n"
    "  -n, --count NUMBER     end after this many records\n"
    "  -W, --seconds NUMBER   end after this long\n"
    "\n"
    "  -h, --help\n"
    "  -V, --version\n"
    "\n"
    "Ends with 0 when records came, 1 after an error, 2 when it is used wrongly, 3 when no record\n"
    "came.\n";

std::optional<Options> parse_options(int argc, char **argv)
{
    Options options;
    options.directory = VAIPC_RUN_DIR;
    for (int option;
         (option = getopt_long(argc, argv, short_options, long_options, nullptr)) != -1;) {
        if (!set_option(option, options))
            return std::nullopt;
        if (options.request != Options::Request::Run)
            return options;
    }
    if (!set_streams(argv + optind, options) || !is_consistent(options))
        return std::nullopt;
    return options;
}
