#include "tools/common/program.h"
#include "tools/va_picture/picture_printer.h"

#include <string>
#include <utility>

namespace va::picture
{

namespace
{

constexpr char introduction[] =
    "usage: va_picture [option...] FILE\n"
    "Keeps FILE, an SVG picture, up to date: the windows, masks, lines and areas that the\n"
    "video-analytics daemon has in force, the objects and faces that it sees, alarms, the last "
    "events. Besides it\n"
    "writes FILE.html, a page to open in a browser, and FILE.js, by which the page follows. "
    "Sockets\n"
    "that do not exist yet are waited for.\n"
    "\n";

const char *only(std::span<char *const> files)
{
    if (files.size() != 1)
        throw WrongUse(files.empty() ? "no file is named" : "more than one file is named");
    return files[0];
}

int run(std::span<char *> arguments)
{
    Source source = default_source();
    source.pace = 1;
    std::string still;
    OptionTable options = {{"What is drawn:", 0, "still", "FILE",
                            "a JPEG of the video behind it, as va_video keeps it up to date",
                            [&](const char *text) { still = text; }}};
    for (Option &option : source_options(source))
        options.push_back(std::move(option));
    std::span<char *> files;
    if (!parse_command_line(arguments, std::move(options), {introduction, EXIT_STATUSES}, files))
        return RECORDS_CAME;
    check(source);
    if (!still.empty() && !source.capture.empty())
        throw WrongUse("--still is of what is seen now, not of a file of records");
    std::vector<std::unique_ptr<RecordSink>> printers;
    printers.push_back(std::make_unique<PicturePrinter>(
        only(files),
        source.capture.empty() ? PicturePrinter::From::Daemon : PicturePrinter::From::Capture,
        still));
    return print_records(source, std::move(printers));
}

} // namespace

} // namespace va::picture

int main(int argc, char **argv)
{
    return va::run_program([&] {
        return va::picture::run({argv, static_cast<std::size_t>(argc)});
    });
}
