#include "client/capture.h"
#include "tools/common/printing.h"
#include "tools/common/program.h"
#include "tools/va_dump/options.h"
#include "tools/va_dump/record_sinks.h"
#include "tools/va_dump/status_printing.h"

namespace va::dump
{

namespace
{

class CaptureSink : public RecordSink
{
public:
    CaptureSink(const std::string &path, std::optional<std::uint64_t> size) : writer_(path, size) {}
    void record(const Record &record) override { writer_.write(record); }
    void tick(const Moment &) override { writer_.flush(); }
    void finish(const Moment &) override { writer_.flush(); }

private:
    CaptureWriter writer_;
};

// Lets the filters know what lines and areas are called.
class FilterNames : public RecordSink
{
public:
    explicit FilterNames(Filters &filters) : filters_(filters) {}
    void record(const Record &) override {}
    bool wants_status() const override { return true; }
    void status(const Moment &, const DaemonStatus &status) override
    {
        filters_.set_scene(scene_of(status));
    }

private:
    Filters &filters_;
};

// Events are filtered, not what they are made of.
bool are_records_filtered(const Options &options)
{
    return !options.events && !options.filters.empty();
}

std::vector<std::unique_ptr<RecordSink>> make_sinks(Options &options)
{
    std::vector<std::unique_ptr<RecordSink>> sinks;
    sinks.push_back(make_sink(options));
    if (!options.copy.empty())
        sinks.push_back(std::make_unique<CaptureSink>(options.copy, options.copy_size));
    if (are_records_filtered(options) && options.filters.have_rules())
        sinks.push_back(std::make_unique<FilterNames>(options.filters));
    return sinks;
}

Selection make_selection(Options &options)
{
    if (!are_records_filtered(options))
        return {};
    return [&](const Record &record) { return options.filters.select(record); };
}

int print_status(const Options &options)
{
    const std::string &directory = options.source.directory;
    const DaemonStatus status =
        options.reload ? reload_settings(directory) : ask_daemon_status(directory);
    const Verdict verdict = judge(status);
    if (options.json)
        write_line(status_json(status, verdict));
    else if (options.status)
        write_text(status_text(status, verdict));
    else if (options.reload)
        write_text(settings_text(status, verdict));
    else
        write_text(metrics_of(status));
    if (options.metrics && verdict.status != IS_WELL)
        say(verdict.text);
    return verdict.status;
}

int run(std::span<char *> arguments)
{
    Options options;
    if (!parse_options(arguments, options))
        return RECORDS_CAME;
    if (options.asks_daemon())
        return print_status(options);
    if (!options.source.capture.empty() && !options.copy.empty())
        check_capture(options.source.capture); // before the copy takes the place of a file
    return print_records(options.source, make_sinks(options), make_selection(options));
}

} // namespace

} // namespace va::dump

int main(int argc, char **argv)
{
    return va::run_program([&] { return va::dump::run({argv, static_cast<std::size_t>(argc)}); });
}
