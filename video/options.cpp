#include "video/options.h"

#include "video/capture.h"
#include "video/say.h"

#include <charconv>
#include <string_view>

#include <getopt.h>

namespace
{

constexpr char short_options[] = "fF:hlnr:s:t:V";
constexpr option long_options[] = {
    {"fast", no_argument, nullptr, 'f'},        {"frame", required_argument, nullptr, 'F'},
    {"help", no_argument, nullptr, 'h'},        {"loop", no_argument, nullptr, 'l'},
    {"no-faces", no_argument, nullptr, 'n'},    {"rate", required_argument, nullptr, 'r'},
    {"still", required_argument, nullptr, 's'}, {"threads", required_argument, nullptr, 't'},
    {"version", no_argument, nullptr, 'V'},     {nullptr, 0, nullptr, 0},
};

constexpr char more[] = " (va_video --help tells more)";

// The whole text must be one number from `least` to `most`.
template <class Number>
bool parse_number(std::string_view text, Number &number, Number least, Number most)
{
    Number value{};
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || stop != text.data() + text.size() ||
        !(value >= least && value <= most))
        return false;
    number = value;
    return true;
}

bool parse_frame(std::string_view text, FrameSize &frame)
{
    constexpr int most = 65535;
    const std::size_t cross = text.find('x');
    return cross != std::string_view::npos &&
           parse_number(text.substr(0, cross), frame.width, 1, most) &&
           parse_number(text.substr(cross + 1), frame.height, 1, most);
}

bool set_value(int option, Options &options)
{
    constexpr double slowest = 0.1;
    constexpr double fastest = 240;
    constexpr int most_threads = 64;
    switch (option) {
    case 'F':
        return parse_frame(optarg, options.frame);
    case 'r':
        return parse_number(optarg, options.rate, slowest, fastest);
    case 't':
        return parse_number(optarg, options.threads, 1, most_threads);
    default:
        options.still = optarg;
        return !options.still.empty();
    }
}

bool set_option(int option, Options &options)
{
    switch (option) {
    case 'f':
        options.fast = true;
        return true;
    case 'h':
        options.request = Options::Request::help;
        return true;
    case 'l':
        options.loop = true;
        return true;
    case 'n':
        options.faces = false;
        return true;
    case 'V':
        options.request = Options::Request::version;
        return true;
    case '?':
        return false; // getopt has said what is wrong
    default:
        if (set_value(option, options))
            return true;
        say("-%c %s is of no use%s", option, optarg, more);
        return false;
    }
}

} // namespace

const char USAGE[] =
    "usage: va_video [option...] SOURCE FEED\n"
    "Looks at a video and tells the stand-in of the chip what moves, stands and shows its face.\n"
    "    SOURCE  a file, a device (/dev/video0) or a URL (rtsp://, http://)\n"
    "    FEED    the FIFO that the stand-in reads; - for standard output\n"
    "\n"
    "  -f, --fast           a file as fast as it can be looked at, not by its own clock\n"
    "  -l, --loop           a file again and again\n"
    "  -r, --rate NUMBER    looks a second, at most; default 30\n"
    "  -n, --no-faces       does not look for faces\n"
    "  -s, --still FILE     keeps a JPEG of what is looked at up to date\n"
    "  -t, --threads NUMBER of the library; default 1\n"
    "  -F, --frame WxH      the frame that places are told in; default 1920x1080\n"
    "\n"
    "  -h, --help\n"
    "  -V, --version\n"
    "\n"
    "A live source that is lost is opened again each second. SIGINT and SIGTERM end the program,\n"
    "with status 0. It ends with 1 when the source or the feed is of no use, 2 when it is used\n"
    "wrongly.\n";

std::optional<Options> parse_options(int argc, char **argv)
{
    Options options;
    for (int option;
         (option = getopt_long(argc, argv, short_options, long_options, nullptr)) != -1;) {
        if (!set_option(option, options))
            return std::nullopt;
        if (options.request != Options::Request::run)
            return options;
    }
    if (argc - optind != 2) {
        say("a source and a feed are needed%s", more);
        return std::nullopt;
    }
    options.source = argv[optind];
    options.feed = argv[optind + 1];
    if (is_live(options.source) && (options.fast || options.loop)) {
        say("-f and -l are for files%s", more);
        return std::nullopt;
    }
    return options;
}
