#include "tools/capture.h"
#include "tools/figures_printer.h"
#include "tools/json_printer.h"
#include "tools/options.h"
#include "tools/output.h"
#include "tools/picture_printer.h"
#include "tools/watch.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <new>
#include <stdexcept>
#include <system_error>

namespace
{

enum ExitStatus { RECORDS_CAME = 0, FAILED = 1, USED_WRONGLY = 2, NO_RECORDS = 3 };

std::unique_ptr<Printer> make_printer(const Options &options)
{
    switch (options.output) {
    case Options::Output::Json:
        return std::make_unique<JsonPrinter>(options.style.labels);
    case Options::Output::Figures:
        return std::make_unique<FiguresPrinter>(options.streams);
    default:
        return std::make_unique<TextPrinter>(options.style);
    }
}

std::vector<std::unique_ptr<Printer>> make_printers(const Options &options)
{
    std::vector<std::unique_ptr<Printer>> printers;
    printers.push_back(make_printer(options));
    if (!options.copy.empty())
        printers.push_back(std::make_unique<CaptureWriter>(options.copy));
    if (!options.picture.empty())
        printers.push_back(std::make_unique<PicturePrinter>(options.picture));
    return printers;
}

// Hands on the wanted records of the capture. Throws std::runtime_error, after all whole records,
// when its end is missing.
void replay(const Options &options, Output &output)
{
    Elapsed last{};
    const std::string fault = read_capture(options.capture, [&](const Record &record) {
        last = record.at;
        if (options.time_limit && last > *options.time_limit)
            return false;
        return std::ranges::count(options.streams, &record.kind) == 0 || output.print(record);
    });
    output.tell(&Printer::finish, last);
    if (!fault.empty())
        throw std::runtime_error(options.capture + ": " + fault);
}

int fail(const char *reason)
{
    std::fprintf(stderr, "va_dump: %s\n", reason);
    return FAILED;
}

int run(const Options &options)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    std::signal(SIGPIPE, SIG_IGN);
    Output output(make_printers(options), options.count);
    try {
        if (options.capture.empty())
            output.tell(&Printer::finish, watch(options, output));
        else
            replay(options, output);
    } catch (const std::system_error &error) {
        if (error.code() != std::errc::broken_pipe) // else nobody reads any more: a common end
            throw;
    }
    return output.any() ? RECORDS_CAME : NO_RECORDS;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        const std::optional<Options> options = parse_options(argc, argv);
        if (!options)
            return USED_WRONGLY;
        if (options->request == Options::Request::Run)
            return run(*options);
        std::fputs(options->request == Options::Request::Help ? USAGE : "va_dump " VA_VERSION "\n",
                   stdout);
        return std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::bad_alloc &) {
        return fail("out of memory");
    } catch (const std::exception &error) {
        return fail(error.what());
    }
}
