#pragma once

#include "tools/common/record.h"

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

    // The connection to a stream was lost.
    virtual void lost(const StreamKind &) {}
    // Called several times a second while the records are the daemon's.
    virtual void tick(Elapsed) {}
    // The user asks how it stands.
    virtual void report(Elapsed) {}
    // There will be no more.
    virtual void finish(Elapsed) {}
};
