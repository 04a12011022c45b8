#pragma once

#include "tools/common/printer.h"

#include <string>

// A record as one JSON object: "time" of its arrival (ISO 8601 with zone), "stream", "length" and
// either "words", all of the payload's, or, with `labels` and where the fields are known,
// "entries", an object each. Words that make no entry are in "words" then, and bytes that fill no
// word are in "rest", hexadecimal; both are there only when there are any.
std::string json_text(const Record &record, bool labels);

// One line for each record; for each change of a connection one with "time", "stream", "connected"
// and "status", the words for it; for a daemon that is not well, or is again, one with "time",
// "verdict" and the "exit_status" that goes with it.
class JsonPrinter : public Printer
{
public:
    explicit JsonPrinter(bool labels) : labels_(labels) {}
    void print(const Record &record) override;
    void connection(const Connection &connection) override;
    void verdict(const Moment &now, const Verdict &verdict) override;

private:
    bool labels_;
};
