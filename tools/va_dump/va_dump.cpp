#include "tools/common/capture.h"
#include "tools/common/program.h"
#include "tools/common/standard_output.h"
#include "tools/va_dump/event_printer.h"
#include "tools/va_dump/figures_printer.h"
#include "tools/va_dump/json_printer.h"
#include "tools/va_dump/metrics.h"
#include "tools/va_dump/options.h"
#include "tools/va_dump/status_json.h"
#include "tools/va_dump/status_words.h"
#include "tools/va_dump/text_printer.h"

namespace
{

std::unique_ptr<Printer> make_printer(const Options &options)
{
    if (options.events)
        return std::make_unique<EventPrinter>(
            options.json ? EventPrinter::Style::Json : EventPrinter::Style::Text, options.filters,
            options.source.count, options.source.capture.empty() ? options.source.directory : "");
    if (options.figures)
        return std::make_unique<FiguresPrinter>(options.source.streams, options.period);
    if (options.json)
        return std::make_unique<JsonPrinter>(options.labels);
    return std::make_unique<TextPrinter>(
        WordStyle{options.hexadecimal ? Base::Hexadecimal : Base::Decimal, options.labels});
}

std::vector<std::unique_ptr<Printer>> make_printers(const Options &options)
{
    std::vector<std::unique_ptr<Printer>> printers;
    printers.push_back(make_printer(options));
    if (!options.copy.empty())
        printers.push_back(std::make_unique<CaptureWriter>(options.copy, options.copy_size));
    return printers;
}

// Events are filtered, not what they are made of.
Selection make_selection(Options &options)
{
    if (options.events || options.filters.empty())
        return {};
    return [&](const Record &record) { return options.filters.select(record); };
}

int print_status(const Options &options)
{
    const DaemonStatus status = ask_daemon_status(options.source.directory);
    const Verdict verdict = judge(status);
    if (options.json)
        write_line(status_json(status, verdict));
    else if (options.status)
        write_text(status_words(status, verdict));
    else
        write_text(metrics_of(status));
    if (options.metrics && verdict.status != IS_WELL)
        say(verdict.text);
    return verdict.status;
}

} // namespace

int main(int argc, char **argv)
{
    return run_program([&]() -> int {
        Options options;
        if (!parse_options({argv, static_cast<std::size_t>(argc)}, options))
            return RECORDS_CAME;
        if (options.status || options.metrics)
            return print_status(options);
        if (!options.source.capture.empty() && !options.copy.empty())
            check_capture(options.source.capture); // before the copy takes the place of a file
        return print_records(options.source, make_printers(options), make_selection(options));
    });
}
