#pragma once

#include "tools/common/messages.h"
#include "tools/common/sink.h"
#include "tools/va_dump/filters.h"

#include <string>
#include <vector>

// What va_dump prints of the records.
namespace va::dump
{

// How the words of a payload are written.
struct WordStyle {
    bool hexadecimal = false;
    bool labels = false; // each word's name, in decimal, where it is known
};

// One line for each record: local time, stream, payload length, and the words of the payload, " | "
// between its entries. Bytes at the end that fill no word follow as two hexadecimal digits each.
class TextSink : public RecordSink
{
public:
    explicit TextSink(const WordStyle &style) : style_(style) {}
    void record(const Record &record) override;

private:
    WordStyle style_;
};

// One JSON object for each record, each change of a connection and each verdict. A record has
// "time", "stream", "length" and the payload: "entries" with the names of their words, where they
// are wanted and known, else "words"; "rest" are odd bytes in hexadecimal.
class JsonSink : public RecordSink
{
public:
    explicit JsonSink(bool labels) : labels_(labels) {}
    void record(const Record &record) override;
    void connection(const Connection &connection) override;
    void verdict(const Moment &now, const Verdict &verdict) override;

private:
    bool labels_;
};

// No records: how many there were. Prints, when asked, each period and at the end, a table with a
// line for each stream: records, payload bytes, records a second over the whole time, the longest
// time without a record since the first one (the time now running too), disconnects.
class FiguresSink : public RecordSink
{
public:
    explicit FiguresSink(std::vector<Stream> streams, Elapsed period = Elapsed::max());
    void record(const Record &record) override;
    void connection(const Connection &connection) override;
    void tick(const Moment &now) override;
    Elapsed due() const override { return due_; }
    void report(const Moment &now) override;
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

    std::vector<Stream> streams_;
    Elapsed period_;
    Elapsed due_;
    Figures figures_[STREAM_COUNT];
};

// No records, but what they show: a line or a JSON object for each event that is wanted, at most
// `count`.
class EventSink : public RecordSink
{
public:
    // `live`: from a daemon, which names lines and areas.
    EventSink(bool json, Filters filters, std::uint64_t count, bool live);
    void record(const Record &record) override;
    std::optional<std::uint64_t> written() const override { return written_; }
    void connection(const Connection &connection) override;
    bool wants_status() const override { return true; }
    void status(const Moment &now, const DaemonStatus &status) override;
    void verdict(const Moment &now, const Verdict &verdict) override;
    void tick(const Moment &now) override;
    void finish(const Moment &now) override;

private:
    void print(const Event &event);

    bool json_;
    Filters filters_;
    std::uint64_t count_;
    std::uint64_t written_ = 0;
    Moment now_{}; // known last
    EventMaker events_;
};

} // namespace va::dump
