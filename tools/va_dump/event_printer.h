#pragma once

#include "tools/common/events.h"
#include "tools/common/printer.h"
#include "tools/va_dump/filters.h"

#include <string>

// An event as one JSON object: "time", "event", and what belongs to it.
std::string json_text(const Event &event, std::chrono::system_clock::time_point time);

// No records, but what they tell: a line or a JSON object for each event that is wanted, at most
// `count`.
class EventPrinter : public Printer
{
public:
    enum class Style { Text, Json };

    // Asks the daemon of that run directory, if one is named, for the names of lines and areas:
    // when it comes, and every now and then, since its settings may change.
    EventPrinter(Style style, Filters filters, std::uint64_t count, std::string directory);
    void print(const Record &record) override;
    std::optional<std::uint64_t> told() const override { return told_; }
    void connection(const Connection &connection) override;
    void verdict(const Moment &now, const Verdict &verdict) override;
    void tick(const Moment &now) override;
    void finish(const Moment &now) override { tick(now); }

private:
    void tell(const Event &event);
    void ask_names(std::chrono::milliseconds patience);

    Style style_;
    Filters filters_;
    std::uint64_t count_;
    std::uint64_t told_ = 0;
    std::string directory_;
    Elapsed names_due_{};
    bool is_here_ = false; // the daemon
    Moment now_{};         // by which the events' clock is told
    EventMaker events_;
};
