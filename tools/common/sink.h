#pragma once

#include "client/record.h"
#include "client/verdict.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// Where a program's records go.
namespace va
{

// What became of a stream's connection; reported once a change.
struct Connection {
    Stream stream;
    Moment moment;
    bool connected;
    const std::string &status; // for people
};

// What becomes of the records: text, JSON, figures, a picture, a capture. Throws std::system_error,
// whose text names what could not be written.
class RecordSink
{
public:
    RecordSink() = default;
    RecordSink(const RecordSink &) = delete;
    RecordSink &operator=(const RecordSink &) = delete;
    virtual ~RecordSink() = default;

    virtual void record(const Record &record) = 0;

    // How many items it has written, if that is not one for each record.
    virtual std::optional<std::uint64_t> written() const { return std::nullopt; }
    virtual void connection(const Connection &) {}
    // Whether it wants status(): what the daemon answers when it connects, and every two seconds.
    virtual bool wants_status() const { return false; }
    virtual void status(const Moment &, const DaemonStatus &) {}
    // The daemon, which is connected, is not well, or is well again; reported once a change. One
    // that is gone is neither of the two.
    virtual void verdict(const Moment &, const Verdict &) {}
    // Called several times a second while records arrive, and once when due() is reached.
    virtual void tick(const Moment &) {}
    virtual Elapsed due() const { return Elapsed::max(); }
    // The user asks for a report.
    virtual void report(const Moment &) {}
    // There will be no more.
    virtual void finish(const Moment &) {}
};

// Of a record what is wanted: a payload that is valid until the next call; nothing when none is.
using Selection = std::function<std::optional<std::span<const std::uint8_t>>(const Record &)>;

// Hands every record that is wanted to all sinks, until there were so many, or until the first sink
// has written so many items.
class Sinks
{
public:
    Sinks(std::vector<std::unique_ptr<RecordSink>> sinks, std::uint64_t count, Selection selection)
        : sinks_(std::move(sinks)), count_(count), selection_(std::move(selection))
    {
    }

    // False when that was the last one wanted.
    bool record(const Record &record)
    {
        if (const auto payload = selection_ ? selection_(record) : record.payload) {
            ++records_;
            call(&RecordSink::record, Record{record.stream, record.time, record.at, *payload});
        }
        return !is_complete();
    }

    template <class... Parameter, class... Argument>
    void call(void (RecordSink::*what)(Parameter...), const Argument &...argument)
    {
        for (const auto &sink : sinks_)
            (*sink.*what)(argument...);
    }

    // When the first of them wants its next tick.
    Elapsed due() const
    {
        Elapsed first = Elapsed::max();
        for (const auto &sink : sinks_)
            first = std::min(first, sink->due());
        return first;
    }

    bool want_status() const
    {
        return std::ranges::any_of(sinks_, [](const auto &sink) { return sink->wants_status(); });
    }
    bool is_complete() const { return sinks_.front()->written().value_or(records_) >= count_; }
    bool any() const { return records_ > 0; }

private:
    std::vector<std::unique_ptr<RecordSink>> sinks_;
    std::uint64_t count_;
    Selection selection_;
    std::uint64_t records_ = 0;
};

} // namespace va
