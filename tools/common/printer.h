#pragma once

#include "tools/common/record.h"
#include "tools/common/verdict.h"

#include <cstdint>
#include <optional>
#include <string>

// What became of a stream's connection; told once a change.
struct Connection {
    const StreamKind &kind;
    Moment moment;
    bool connected;
    const std::string &status; // for people
};

// What becomes of the records: text, JSON, figures, a picture, a capture. Throws std::system_error,
// whose text names what could not be written.
class Printer
{
public:
    Printer() = default;
    Printer(const Printer &) = delete;
    Printer &operator=(const Printer &) = delete;
    virtual ~Printer() = default;

    virtual void print(const Record &record) = 0;

    // How many it has told of, if it does not tell of each record once.
    virtual std::optional<std::uint64_t> told() const { return std::nullopt; }
    virtual void connection(const Connection &) {}
    // The daemon, which is connected, is not well, or is well again; told once a change. One that
    // is gone is no more of the two.
    virtual void verdict(const Moment &, const Verdict &) {}
    // Called several times a second while the records come, and once when due() has come.
    virtual void tick(const Moment &) {}
    virtual Elapsed due() const { return Elapsed::max(); }
    // The user asks how it stands.
    virtual void report(const Moment &) {}
    // There will be no more.
    virtual void finish(const Moment &) {}
};
