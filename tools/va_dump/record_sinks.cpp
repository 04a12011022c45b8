#include "tools/va_dump/record_sinks.h"

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
                      const WordStyle &style)
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

std::string payload_text(const Record &record, const WordStyle &style)
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

double seconds(Elapsed time)
{
    return std::chrono::duration<double>(time).count();
}

} // namespace

void TextSink::record(const Record &record)
{
    write_line(clock_text(record.time) +
               formatted(" %-3s %5zu  ", name_of(record.stream).data(), record.payload.size()) +
               payload_text(record, style_));
}

void JsonSink::record(const Record &record)
{
    write_line(text_of(record_json(record, labels_)));
}

void JsonSink::connection(const Connection &connection)
{
    write_line(text_of({{"time", iso_text(connection.moment.time)},
                        {"stream", name_of(connection.stream)},
                        {"connected", connection.connected},
                        {"status", connection.status}}));
}

void JsonSink::verdict(const Moment &now, const Verdict &verdict)
{
    write_line(text_of({{"time", iso_text(now.time)},
                        {"verdict", verdict.text},
                        {"exit_status", static_cast<int>(verdict.status)}}));
}

FiguresSink::FiguresSink(std::vector<Stream> streams, Elapsed period)
    : streams_(std::move(streams)), period_(period), due_(period)
{
}

void FiguresSink::record(const Record &record)
{
    Figures &figures = figures_[index_of(record.stream)];
    if (figures.records > 0)
        figures.longest_pause = std::max(figures.longest_pause, record.at - figures.last);
    figures.last = record.at;
    figures.bytes += record.payload.size();
    ++figures.records;
}

void FiguresSink::connection(const Connection &connection)
{
    Figures &figures = figures_[index_of(connection.stream)];
    if (figures.connected && !connection.connected)
        ++figures.disconnects;
    figures.connected = connection.connected;
}

void FiguresSink::tick(const Moment &now)
{
    if (now.at < due_)
        return;
    report(now);
    due_ = now.at - now.at % period_ + period_;
}

void FiguresSink::report(const Moment &now)
{
    write_line("stream    records         bytes   records/s  longest pause s  disconnects");
    for (const Stream stream : streams_) {
        const Figures &figures = figures_[index_of(stream)];
        const Elapsed running = figures.records > 0 ? now.at - figures.last : Elapsed();
        const double rate =
            now.at > Elapsed() ? static_cast<double>(figures.records) / seconds(now.at) : 0.0;
        write_line(formatted("%-6s %10" PRIu64 " %13" PRIu64 " %11.2f %16.3f %12" PRIu64,
                             name_of(stream).data(), figures.records, figures.bytes, rate,
                             seconds(std::max(figures.longest_pause, running)),
                             figures.disconnects));
    }
}

EventSink::EventSink(bool json, Filters filters, std::uint64_t count, bool live)
    : json_(json),
      filters_(std::move(filters)),
      count_(count),
      events_([this](const Event &event) { print(event); })
{
    if (live)
        events_.expect_scene();
}

void EventSink::record(const Record &record)
{
    now_ = {record.time, record.at};
    events_.take(record);
}

void EventSink::connection(const Connection &connection)
{
    now_ = connection.moment;
    events_.set_connected(connection.stream, connection.connected, connection.moment.at);
}

void EventSink::status(const Moment &now, const DaemonStatus &status)
{
    now_ = now;
    events_.set_scene(scene_of(status));
    events_.pass(now.at);
}

void EventSink::verdict(const Moment &now, const Verdict &verdict)
{
    now_ = now;
    events_.set_verdict(verdict, now.at);
}

void EventSink::tick(const Moment &now)
{
    now_ = now;
    events_.pass(now.at);
}

void EventSink::finish(const Moment &now)
{
    tick(now);
    events_.finish(now.at);
}

void EventSink::print(const Event &event)
{
    if (written_ == count_ || !filters_.want(event))
        return;
    ++written_;
    write_line(json_ ? text_of(event_json(event, now_.time))
                     : clock_text(now_.time) + "  " + event_text(event));
}

} // namespace va::dump
