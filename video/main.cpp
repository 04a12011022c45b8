#include "tools/common/options.h"
#include "tools/common/program.h"
#include "tools/common/stop.h"
#include "util/text.h"
#include "video/session.h"

#include <algorithm>
#include <cstdint>
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
    "A live source that is not there, or is lost, is opened again each second. SIGINT and SIGTERM\n"
    "end the program, with status 0. It ends with 1 when the source or the feed cannot be used, 2\n"
    "when it is used wrongly.\n"};

FrameSize parse_frame(const std::string &text)
{
    const std::size_t cross = std::min(text.find('x'), text.size() - 1);
    const auto width = number_in<std::uint16_t>(text.substr(0, cross));
    const auto height = number_in<std::uint16_t>(text.substr(cross + 1));
    if (!width || !height || *width == 0 || *height == 0)
        throw WrongUse(text + " is no frame size");
    return {*width, *height};
}

OptionTable table_of(Options &options)
{
    constexpr char source[] = "Source:", analysis[] = "Analysis:";
    return {
        {source, 'f', "fast", nullptr, "a file as fast as it can be analysed, not by its own clock",
         [&](const char *) { options.reader.fast = true; }},
        {source, 'l', "loop", nullptr, "a file again and again",
         [&](const char *) { options.reader.loop = true; }},
        {source, 'r', "rate", "NUMBER", "frames a second, at most; default 30, with -f all of them",
         [&](const char *text) {
             options.reader.rate = parse_decimal(text, 0.1, 240, "rate from 0.1 to 240");
         }},
        {analysis, 'n', "no-faces", nullptr, "no detection of faces",
         [&](const char *) { options.faces = false; }},
        {analysis, 's', "still", "FILE", "keeps a JPEG of the analysed picture up to date",
         [&](const char *path) { options.still = path; }},
        {analysis, 'F', "frame", "WxH", "the frame of the reported boxes; default 1920x1080",
         [&](const char *text) { options.frame = parse_frame(text); }},
    };
}

int run(std::span<char *> arguments)
{
    Options options;
    std::span<char *> operands;
    if (!parse_command_line(arguments, table_of(options), manual, operands))
        return EXIT_SUCCESS;
    if (operands.size() != 2)
        throw WrongUse("a source and a feed are needed");
    options.reader.source = operands[0];
    options.feed = operands[1];
    if (is_live(options.reader.source) && (options.reader.fast || options.reader.loop))
        throw WrongUse("-f and -l are for files");
    prepare_stop(std::nullopt);
    return run_session(options);
}

} // namespace

} // namespace va::video

int main(int argc, char **argv)
{
    return va::run_program([&] { return va::video::run({argv, static_cast<std::size_t>(argc)}); });
}
