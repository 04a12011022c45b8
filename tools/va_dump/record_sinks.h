#pragma once

#include "tools/common/sink.h"
#include "tools/va_dump/options.h"

#include <memory>

// What va_dump prints of the records.
namespace va::dump
{

// By the options one of these:
//
// a line for each record: local time, stream, payload length, and the words of the payload, " | "
// between its entries. Bytes at the end that fill no word follow as two hexadecimal digits each.
//
// a JSON object for each record, each change of a connection and each verdict. A record has "time",
// "stream", "length" and the payload: "entries" with the names of their words, where they are
// wanted and known, else "words"; "rest" are odd bytes in hexadecimal.
//
// figures: when asked, each period and at the end, a table with a line for each stream: records,
// payload bytes, records a second over the whole time, the longest time without a record since the
// first one (the time now running too), disconnects.
//
// events: what the records show, a line or a JSON object for each one that is wanted, until so many
// are written.
//
// `options` outlive it.
std::unique_ptr<RecordSink> make_sink(const Options &options);

} // namespace va::dump
