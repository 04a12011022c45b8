#pragma once

#include "tools/common/printer.h"

#include <vector>

// No records: how many there were. Prints, when asked, each period and at the end, a table with a
// line for each stream: records, payload bytes, records a second over the whole time, the longest
// time without a record since the first one (the time now running too), disconnects.
class FiguresPrinter : public Printer
{
public:
    explicit FiguresPrinter(std::vector<const StreamKind *> streams,
                            Elapsed period = Elapsed::max());
    void print(const Record &record) override;
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

    std::vector<const StreamKind *> streams_;
    Elapsed period_;
    Elapsed due_;
    Figures figures_[STREAM_COUNT];
};
