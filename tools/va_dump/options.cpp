#include "tools/va_dump/options.h"

#include "tools/common/program.h"

#include <filesystem>

namespace
{

constexpr char introduction[] =
    "usage: va_dump [option...] [stream...]\n"
    "Prints the records of the video-analytics daemon, one line each:\n"
    "    local time, stream, payload length in bytes, payload\n"
    "The payload is printed in 32-bit words; \" | \" parts its entries:\n"
    "    od   objects, 10 words each\n"
    "    vmf  alarm masks of the event codes 0, 1, 2, 3\n"
    "    fd   faces, 7 words each\n"
    "    ta   tamper result, 4 words\n"
    "Without a stream, all four. Sockets that do not exist yet are waited for.\n"
    "\n";
constexpr char printed[] = "What is printed:";
constexpr char besides[] = "Besides:";

void set_output(Options &options, Options::Output output)
{
    if (options.output != Options::Output::Text && options.output != output)
        throw WrongUse("-j and -q exclude each other");
    options.output = output;
}

OptionTable table_of(Options &options)
{
    OptionTable table = {
        {printed, 'j', "json", nullptr, "one JSON object a line",
         [&](const char *) { set_output(options, Options::Output::Json); }},
        {printed, 'l', "labels", nullptr, "the words with their names, where they are known",
         [&](const char *) { options.style.labels = true; }},
        {printed, 'q', "quiet", nullptr, "no records, but figures: at the end and on SIGUSR1",
         [&](const char *) { set_output(options, Options::Output::Figures); }},
        {printed, 'x', "hexadecimal", nullptr, "words in hexadecimal, 8 digits, not decimal",
         [&](const char *) { options.style.base = Base::Hexadecimal; }},
        {besides, 'w', "write", "FILE", "write the records to FILE",
         [&](const char *text) { options.copy = text; }},
    };
    for (Option &option : source_options(options.source))
        table.push_back(std::move(option));
    return table;
}

void set_streams(std::span<char *const> names, std::vector<const StreamKind *> &streams)
{
    bool wanted[STREAM_COUNT] = {};
    for (const char *name : names) {
        const StreamKind *kind = find_stream(name);
        if (!kind)
            throw WrongUse(std::string("no stream is called ") + name);
        wanted[index_of(*kind)] = true;
    }
    if (!names.empty())
        std::erase_if(streams, [&](const StreamKind *kind) { return !wanted[index_of(*kind)]; });
}

void check(const Options &options)
{
    check(options.source);
    std::error_code ignored;
    if (std::filesystem::equivalent(options.source.capture, options.copy, ignored))
        throw WrongUse("-r and -w name the same file");
}

} // namespace

bool parse_options(std::span<char *> arguments, Options &options)
{
    std::span<char *> names;
    if (!parse_command_line(arguments, table_of(options), {introduction, EXIT_STATUSES}, names))
        return false;
    set_streams(names, options.source.streams);
    check(options);
    return true;
}
