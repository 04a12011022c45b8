#pragma once

#include "tools/common/printer.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

// Hands every record to all printers, until a number of records has come.
class Output
{
public:
    Output(std::vector<std::unique_ptr<Printer>> printers, std::uint64_t count)
        : printers_(std::move(printers)), remaining_(count)
    {
    }

    // False when that was the last one wanted.
    bool print(const Record &record)
    {
        any_ = true;
        for (const auto &printer : printers_)
            printer->print(record);
        return --remaining_ != 0;
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

    bool is_complete() const { return remaining_ == 0; }
    bool any() const { return any_; } // record came

private:
    std::vector<std::unique_ptr<Printer>> printers_;
    std::uint64_t remaining_;
    bool any_ = false;
};
