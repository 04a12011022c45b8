#pragma once

#include "tools/common/printer.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

// What of a record is wanted: a payload that is valid until the next call; nothing when it is none
// of it.
using Selection = std::function<std::optional<std::span<const std::uint8_t>>(const Record &)>;

// Hands every record that is wanted to all printers, until so many have come, or until the first
// printer has told of so many.
class Output
{
public:
    Output(std::vector<std::unique_ptr<Printer>> printers, std::uint64_t count, Selection selection)
        : printers_(std::move(printers)), count_(count), selection_(std::move(selection))
    {
    }

    // False when that was the last one wanted.
    bool print(const Record &record)
    {
        if (const auto payload = selection_ ? selection_(record) : record.payload) {
            ++records_;
            tell(&Printer::print, Record{record.kind, record.time, record.at, *payload});
        }
        return !is_complete();
    }

    template <class... Parameter, class... Argument>
    void tell(void (Printer::*what)(Parameter...), const Argument &...argument)
    {
        for (const auto &printer : printers_)
            (*printer.*what)(argument...);
    }

    // When the first of them wants its next tick.
    Elapsed due() const
    {
        Elapsed first = Elapsed::max();
        for (const auto &printer : printers_)
            first = std::min(first, printer->due());
        return first;
    }

    bool is_complete() const { return printers_.front()->told().value_or(records_) >= count_; }
    bool any() const { return records_ > 0; }

private:
    std::vector<std::unique_ptr<Printer>> printers_;
    std::uint64_t count_;
    Selection selection_;
    std::uint64_t records_ = 0;
};
