#include "tools/common/options.h"
#include "tools/common/program.h"
#include "tools/common/stop.h"
#include "video/session.h"

#include <cstdlib>

namespace va::video
{

namespace
{

constexpr Manual manual = {
    "usage: va_video [option...] SOURCE FEED\n"
    "Analyses a video and reports to the stand-in of the chip which objects move, which are\n"
    "stationary, faces, and tampering.\n"
    "    SOURCE  a file, a device (/dev/video0) or a URL (rtsp://, http://)\n"
    "    FEED    the FIFO that the stand-in reads; - for standard output\n"
    "\n",
    "\n"
    "A live source that is lost is opened again each second. SIGINT and SIGTERM end the program,\n"
    "with status 0. It ends with 1 when the source or the feed cannot be used, 2 when it is used\n"
    "wrongly.\n"};

int parse_side(const std::string &text)
{
    constexpr std::uint64_t most = 65535;
    const std::uint64_t side = parse_count(text.c_str(), "width or height");
    if (side > most)
        throw WrongUse(text + " is more than a frame can have");
    return static_cast<int>(side);
}

FrameSize parse_frame(const std::string &text)
{
    const std::size_t cross = text.find('x');
    if (cross == std::string::npos)
        throw WrongUse(text + " is no frame size");
    return {parse_side(text.substr(0, cross)), parse_side(text.substr(cross + 1))};
}

OptionTable table_of(Options &options)
{
    constexpr char source[] = "Source:";
    constexpr char analysis[] = "Analysis:";
    constexpr double slowest = 0.1;
    constexpr double fastest = 240;
    return {
        {source, 'f', "fast", nullptr, "a file as fast as it can be analysed, not by its own clock",
         [&](const char *) { options.reader.fast = true; }},
        {source, 'l', "loop", nullptr, "a file again and again",
         [&](const char *) { options.reader.loop = true; }},
        {source, 'r', "rate", "NUMBER", "frames a second, at most; default 30",
         [&](const char *text) {
             options.reader.rate = parse_decimal(text, slowest, fastest, "rate from 0.1 to 240");
         }},
        {analysis, 'n', "no-faces", nullptr, "no detection of faces",
         [&](const char *) { options.faces = false; }},
        {analysis, 's', "still", "FILE", "keeps a JPEG of the analysed picture up to date",
         [&](const char *path) { options.still = path; }},
        {analysis, 'F', "frame", "WxH", "the frame of the reported boxes; default 1920x1080",
         [&](const char *text) { options.frame = parse_frame(text); }},
    };
}

bool parse_options(std::span<char *> arguments, Options &options)
{
    std::span<char *> operands;
    if (!parse_command_line(arguments, table_of(options), manual, operands))
        return false;
    if (operands.size() != 2)
        throw WrongUse("a source and a feed are needed");
    options.reader.source = operands[0];
    options.feed = operands[1];
    if (is_live(options.reader.source) && (options.reader.fast || options.reader.loop))
        throw WrongUse("-f and -l are for files");
    return true;
}

// Suppresses the messages of the library and its decoders, unless they are asked for.
void silence_libraries()
{
    constexpr int keep = 0;
    setenv("OPENCV_LOG_LEVEL", "SILENT", keep);
    setenv("OPENCV_FFMPEG_DEBUG", "1", keep);
    setenv("OPENCV_FFMPEG_LOGLEVEL", "-8", keep);
}

int run(std::span<char *> arguments)
{
    Options options;
    if (!parse_options(arguments, options))
        return EXIT_SUCCESS;
    prepare_stop(std::nullopt);
    silence_libraries();
    return run_session(options);
}

} // namespace

} // namespace va::video

int main(int argc, char **argv)
{
    return va::run_program([&] { return va::video::run({argv, static_cast<std::size_t>(argc)}); });
}
