#include "tools/va_dump/options.h"

#include "tools/common/program.h"

#include <filesystem>

namespace va::dump
{

namespace
{

constexpr char introduction[] =
    "usage: va_dump [option...] [stream...] [filter...]\n"
    "Prints the records of the video-analytics daemon, one line each:\n"
    "    local time of arrival, stream, payload length in bytes, payload\n"
    "The payload is printed in 32-bit words; \" | \" parts its entries:\n"
    "    od   objects, 10 words each\n"
    "    vmf  alarm masks of the event codes 0, 1, 2, 3\n"
    "    fd   faces, 7 words each\n"
    "    ta   tamper result, 4 words\n"
    "Without a stream, all four. Sockets that do not exist yet are waited for. With filters only\n"
    "what they select: kind=moving (static, face), id=NUMBER, line=CrossLine.C0 or line=0,\n"
    "area=ObjectDetection.O0 or area=0.\n"
    "\n";
constexpr char conclusion[] =
    "With --status, --metrics and --reconfig: 0 when the daemon is well, 4 when it does not run,\n"
    "5 when it hangs, 6 when it runs without analytics, 7 when it cannot write its status.\n";
constexpr char printed[] = "What is printed:";
constexpr char besides[] = "Besides:";

OptionTable table_of(Options &options)
{
    const auto turn_on = [](bool &flag) { return [flag = &flag](const char *) { *flag = true; }; };
    OptionTable table = {
        {printed, 'e', "events", nullptr, "no records, but events: who appeared, left, crossed",
         turn_on(options.events)},
        {printed, 'j', "json", nullptr, "one JSON object a line, also of each connection",
         turn_on(options.json)},
        {printed, 'l', "labels", nullptr, "the words with their names, where they are known",
         turn_on(options.labels)},
        {printed, 'q', "quiet", nullptr, "no records, but figures: at the end and on SIGUSR1",
         turn_on(options.figures)},
        {printed, 0, "every", "NUMBER", "with -q: the figures also after so many seconds each",
         [&](const char *text) { options.period = parse_time(text); }},
        {printed, 'x', "hexadecimal", nullptr, "words in hexadecimal, 8 digits, not decimal",
         turn_on(options.hexadecimal)},
        {printed, 0, "status", nullptr, "no records, but the daemon's status; -j: as JSON",
         turn_on(options.status)},
        {printed, 0, "metrics", nullptr, "no records, but figures of the daemon, for Prometheus",
         turn_on(options.metrics)},
        {printed, 0, "reconfig", nullptr, "have the daemon read its settings again; print them",
         turn_on(options.reload)},
        {besides, 'w', "write", "FILE", "write the records to FILE",
         [&](const char *text) { options.copy = text; }},
        {besides, 0, "size", "NUMBER", "at so many bytes FILE is renamed to FILE.1",
         [&](const char *text) { options.copy_size = parse_count(text, "number of bytes"); }},
    };
    for (Option &option : source_options(options.source))
        table.push_back(std::move(option));
    return table;
}

std::string stream_names()
{
    std::string names;
    for (const Stream stream : STREAMS)
        names += (names.empty() ? "" : ", ") + std::string(name_of(stream));
    return names;
}

// Streams and filters.
void take_operands(std::span<char *const> operands, Options &options)
{
    bool wanted[STREAM_COUNT] = {};
    bool any = false;
    for (const std::string operand : operands) {
        if (operand.find('=') != std::string::npos) {
            options.filters.add(operand);
            continue;
        }
        const auto stream = find_stream(operand);
        if (!stream)
            throw WrongUse("no stream is called " + operand + ", but " + stream_names());
        if (options.asks_daemon())
            throw WrongUse("--status, --metrics and --reconfig take no stream");
        any = wanted[index_of(*stream)] = true;
    }
    if (any)
        std::erase_if(options.source.streams,
                      [&](Stream stream) { return !wanted[index_of(stream)]; });
}

void check_together(const Options &options)
{
    const struct {
        bool both;
        const char *text;
    } conflicts[] = {
        {options.json && options.figures, "-j and -q exclude each other"},
        {options.json && options.hexadecimal, "-j and -x exclude each other"},
        {options.labels && options.hexadecimal, "-l and -x exclude each other"},
        {options.events && options.figures, "-e and -q exclude each other"},
        {options.events && options.hexadecimal, "-e and -x exclude each other"},
        {options.events && options.labels, "-e and -l exclude each other"},
        {options.status + options.metrics + options.reload > 1,
         "--status, --metrics and --reconfig exclude each other"},
        {options.json && options.metrics, "-j and --metrics exclude each other"},
        {(options.events || options.figures || options.labels || options.hexadecimal) &&
             options.asks_daemon(),
         "--status, --metrics and --reconfig show no records: -e, -q, -l and -x are of these"},
        {(!options.copy.empty() || !options.source.capture.empty() || !options.filters.empty()) &&
             options.asks_daemon(),
         "--status, --metrics and --reconfig read no records: -r, -w and filters are of these"},
        {options.period != Elapsed::max() && !options.figures, "--every is of -q"},
        {options.copy_size && options.copy.empty(), "--size is of -w"},
        {!options.source.capture.empty() && options.filters.have_names(),
         "in a file of records lines and areas have no names, but the numbers of their bits"},
    };
    for (const auto &[both, text] : conflicts) {
        if (both)
            throw WrongUse(text);
    }
    std::error_code ignored;
    if (std::filesystem::equivalent(options.source.capture, options.copy, ignored))
        throw WrongUse("-r and -w name the same file");
}

} // namespace

bool parse_options(std::span<char *> arguments, Options &options)
{
    std::span<char *> operands;
    const std::string after = std::string(EXIT_STATUSES) + conclusion;
    if (!parse_command_line(arguments, table_of(options), {introduction, after.c_str()}, operands))
        return false;
    take_operands(operands, options);
    check(options.source);
    check_together(options);
    return true;
}

} // namespace va::dump
