#include "tools/va_dump/record_sinks.h"

#include "tools/common/messages.h"
#include "tools/common/printing.h"
#include "util/text.h"

#include <algorithm>
#include <cinttypes>
#include <nlohmann/json.hpp>
#include <utility>

namespace va::dump
{

namespace
{

std::string_view separator(std::size_t word, std::size_t entry_words)
{
    if (word == 0)
        return "";
    return word % entry_words == 0 ? " | " : " ";
}

std::string word_text(const StreamInfo &info, std::size_t index, std::uint32_t word,
                      const Options &style)
{
    if (!style.labels || info.fields.empty())
        return style.hexadecimal ? formatted("%08x", word) : std::to_string(word);
    const Field &field = info.fields[index % info.entry_words];
    const auto value = static_cast<std::int32_t>(word);
    std::string text = field.is_signed ? std::to_string(value) : std::to_string(word);
    if (field.meaning)
        text = field.meaning(value);
    return std::string(field.name) + '=' + text;
}

// Each byte behind a separator.
std::string hexadecimal(std::span<const std::uint8_t> bytes, const char *separator)
{
    std::string text;
    for (const std::uint8_t byte : bytes)
        text += separator + formatted("%02x", byte);
    return text;
}

Json words_json(const Words &words, std::size_t begin)
{
    Json list = Json::array();
    for (std::size_t i = begin; i < words.size(); ++i)
        list.push_back(words[i]);
    return list;
}

Json entry_json(const Words &words, std::size_t begin, std::span<const Field> fields)
{
    Json entry;
    for (const Field &field : fields) {
        const std::uint32_t word = words[begin++];
        const auto value = static_cast<std::int32_t>(word);
        const std::string name(field.name);
        entry[name] = field.is_signed ? std::int64_t{value} : std::int64_t{word};
        if (field.meaning)
            entry[name + "_word"] = field.meaning(value);
    }
    return entry;
}

std::string payload_text(const Record &record, const Options &style)
{
    const StreamInfo info = info_of(record.stream);
    const Words words(record.payload);
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        text += separator(i, info.entry_words);
        text += word_text(info, i, words[i], style);
    }
    return text + hexadecimal(words.odd_bytes(), " ");
}

Json record_json(const Record &record, bool labels)
{
    const Words words(record.payload);
    const StreamInfo info = info_of(record.stream);
    Json json = {
        {"time", iso_text(record.time)}, {"stream", info.name}, {"length", record.payload.size()}};
    std::size_t labelled = 0;
    if (labels && !info.fields.empty()) {
        Json &entries = json["entries"] = Json::array();
        for (; labelled + info.entry_words <= words.size(); labelled += info.entry_words)
            entries.push_back(entry_json(words, labelled, info.fields));
    }
    if (labelled < words.size() || !json.contains("entries"))
        json["words"] = words_json(words, labelled);
    if (!words.odd_bytes().empty())
        json["rest"] = hexadecimal(words.odd_bytes(), "");
    return json;
}

class TextSink : public RecordSink
{
public:
    explicit TextSink(const Options &style) : style_(style) {}

    void record(const Record &record) override
    {
        const std::string_view name = name_of(record.stream);
        write_line(clock_text(record.time) +
                   formatted(" %-3s %5zu  ", name.data(), record.payload.size()) +
                   payload_text(record, style_));
    }

private:
    const Options &style_;
};

class JsonSink : public RecordSink
{
public:
    explicit JsonSink(bool labels) : labels_(labels) {}

    void record(const Record &record) override
    {
        write_line(text_of(record_json(record, labels_)));
    }

    void connection(const Connection &connection) override
    {
        write_line(text_of({{"time", iso_text(connection.moment.time)},
                            {"stream", name_of(connection.stream)},
                            {"connected", connection.connected},
                            {"status", connection.status}}));
    }

    void verdict(const Moment &now, const Verdict &verdict) override
    {
        write_line(text_of({{"time", iso_text(now.time)},
                            {"verdict", verdict.text},
                            {"exit_status", static_cast<int>(verdict.status)}}));
    }

private:
    bool labels_;
};

double seconds(Elapsed time)
{
    return std::chrono::duration<double>(time).count();
}

class FiguresSink : public RecordSink
{
public:
    FiguresSink(std::vector<Stream> streams, Elapsed period)
        : streams_(std::move(streams)), period_(period), due_(period)
    {
    }

    void record(const Record &record) override
    {
        Figures &figures = figures_[index_of(record.stream)];
        if (figures.records > 0)
            figures.longest_pause = std::max(figures.longest_pause, record.at - figures.last);
        figures.last = record.at;
        figures.bytes += record.payload.size();
        ++figures.records;
    }

    void connection(const Connection &connection) override
    {
        Figures &figures = figures_[index_of(connection.stream)];
        if (figures.connected && !connection.connected)
            ++figures.disconnects;
        figures.connected = connection.connected;
    }

    void tick(const Moment &now) override
    {
        if (now.at < due_)
            return;
        report(now);
        due_ = now.at - now.at % period_ + period_;
    }

    Elapsed due() const override { return due_; }

    void report(const Moment &now) override
    {
        write_line("stream    records         bytes   records/s  longest pause s  disconnects");
        for (const Stream stream : streams_)
            print(stream, figures_[index_of(stream)], now.at);
    }

    void finish(const Moment &now) override { report(now); }

private:
    struct Figures {
        std::uint64_t records = 0;
        std::uint64_t bytes = 0;
        std::uint64_t disconnects = 0;
        bool connected = false;
        Elapsed last{};
        Elapsed longest_pause{};
    };

    static void print(Stream stream, const Figures &figures, Elapsed now)
    {
        const Elapsed running = figures.records > 0 ? now - figures.last : Elapsed();
        const double rate =
            now > Elapsed() ? static_cast<double>(figures.records) / seconds(now) : 0.0;
        write_line(formatted("%-6s %10" PRIu64 " %13" PRIu64 " %11.2f %16.3f %12" PRIu64,
                             name_of(stream).data(), figures.records, figures.bytes, rate,
                             seconds(std::max(figures.longest_pause, running)),
                             figures.disconnects));
    }

    std::vector<Stream> streams_;
    Elapsed period_;
    Elapsed due_;
    Figures figures_[STREAM_COUNT];
};

class EventSink : public RecordSink
{
public:
    explicit EventSink(const Options &options) : options_(options)
    {
        if (options.source.capture.empty()) // a daemon names lines and areas
            events_.expect_scene();
    }

    void record(const Record &record) override
    {
        now_ = {record.time, record.at};
        events_.take(record);
    }

    std::optional<std::uint64_t> written() const override { return written_; }

    void connection(const Connection &connection) override
    {
        now_ = connection.moment;
        events_.set_connected(connection.stream, connection.connected, now_.at);
    }

    bool wants_status() const override { return true; }

    void status(const Moment &now, const DaemonStatus &status) override
    {
        events_.set_scene(scene_of(status));
        tick(now);
    }

    void verdict(const Moment &now, const Verdict &verdict) override
    {
        now_ = now;
        events_.set_verdict(verdict, now.at);
    }

    void tick(const Moment &now) override
    {
        now_ = now;
        events_.pass(now.at);
    }

    void finish(const Moment &now) override
    {
        tick(now);
        events_.finish(now.at);
    }

private:
    void print(const Event &event)
    {
        if (written_ == options_.source.count || !options_.filters.want(event))
            return;
        ++written_;
        write_line(options_.json ? text_of(event_json(event, now_.time))
                                 : clock_text(now_.time) + "  " + event_text(event));
    }

    const Options &options_;
    std::uint64_t written_ = 0;
    Moment now_{}; // known last
    EventMaker events_{[this](const Event &event) { print(event); }};
};

} // namespace

std::unique_ptr<RecordSink> make_sink(const Options &options)
{
    if (options.events)
        return std::make_unique<EventSink>(options);
    if (options.figures)
        return std::make_unique<FiguresSink>(options.source.streams, options.period);
    if (options.json)
        return std::make_unique<JsonSink>(options.labels);
    return std::make_unique<TextSink>(options);
}

} // namespace va::dump
