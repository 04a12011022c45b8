#include "tools/common/capture.h"
#include "tools/common/program.h"
#include "tools/va_dump/figures_printer.h"
#include "tools/va_dump/json_printer.h"
#include "tools/va_dump/options.h"

namespace
{

std::unique_ptr<Printer> make_printer(const Options &options)
{
    switch (options.output) {
    case Options::Output::Json:
        return std::make_unique<JsonPrinter>(options.style.labels);
    case Options::Output::Figures:
        return std::make_unique<FiguresPrinter>(options.source.streams);
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
    return printers;
}

} // namespace

int main(int argc, char **argv)
{
    return run_program([&]() -> int {
        Options options;
        if (!parse_options({argv, static_cast<std::size_t>(argc)}, options))
            return RECORDS_CAME;
        return print_records(options.source, make_printers(options));
    });
}
