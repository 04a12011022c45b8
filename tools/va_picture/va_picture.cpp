#include "tools/common/program.h"
#include "tools/va_picture/picture_printer.h"

#include <string>
#include <utility>

namespace
{

constexpr char introduction[] =
    "usage: va_picture [option...] FILE\n"
    "Keeps FILE, an SVG picture, up to date: the settings' windows, masks, lines and areas, the\n"
    "objects and faces that the video-analytics daemon sees, alarms, the last events. Besides it\n"
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

} // namespace

int main(int argc, char **argv)
{
    return run_program([&]() -> int {
        Source source = default_source();
        source.pace = 1;
        std::string still;
        OptionTable options = {{"What is drawn:", 0, "still", "FILE",
                                "a JPEG of the video behind it, as va_video keeps it up to date",
                                [&](const char *text) { still = text; }}};
        for (Option &option : source_options(source))
            options.push_back(std::move(option));
        std::span<char *> files;
        if (!parse_command_line({argv, static_cast<std::size_t>(argc)}, std::move(options),
                                {introduction, EXIT_STATUSES}, files))
            return RECORDS_CAME;
        check(source);
        if (!still.empty() && !source.capture.empty())
            throw WrongUse("--still is of what is seen now, not of a file of records");
        std::vector<std::unique_ptr<Printer>> printers;
        printers.push_back(std::make_unique<PicturePrinter>(
            only(files),
            source.capture.empty() ? PicturePrinter::From::Daemon : PicturePrinter::From::Capture,
            still));
        return print_records(source, std::move(printers));
    });
}
