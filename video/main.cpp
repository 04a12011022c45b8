#include "video/options.h"
#include "video/say.h"
#include "video/session.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

namespace
{

constexpr int wrong_use = 2;

void install_handlers()
{
    struct sigaction action = {}; // without SA_RESTART: a blocked call must return
    action.sa_handler = [](int) { request_stop(); };
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
}

// What the library and its decoders have to say is left out, unless asked for.
void quieten()
{
    constexpr int keep = 0;
    setenv("OPENCV_LOG_LEVEL", "SILENT", keep);
    setenv("OPENCV_FFMPEG_DEBUG", "1", keep);
    setenv("OPENCV_FFMPEG_LOGLEVEL", "-8", keep);
}

} // namespace

int main(int argc, char **argv)
{
    const std::optional<Options> options = parse_options(argc, argv);
    if (!options)
        return wrong_use;
    if (options->request == Options::Request::help)
        return std::fputs(USAGE, stdout) < 0;
    if (options->request == Options::Request::version)
        return std::puts("va_video " VA_VERSION) < 0;
    install_handlers();
    quieten();
    try {
        return run_session(*options);
    } catch (const std::exception &error) {
        say("%s", error.what());
        return EXIT_FAILURE;
    }
}
