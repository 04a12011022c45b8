#pragma once

#include "client/verdict.h"
#include "tools/common/sink.h"
#include "tools/common/source.h"

#include <functional>
#include <memory>
#include <vector>

// What every program here does the same way.
namespace va
{

// Its end of the manual.
extern const char EXIT_STATUSES[];

// Calls `body`, which returns an exit status, and prints what it throws. Standard descriptors
// that are closed are opened before.
int run_program(const std::function<int()> &body);

// Hands the source's records, as far as they are wanted, to all sinks. Returns an exit status; a
// standard output that nobody reads any more is a normal end. When a daemon that can be asked sent
// none, reports what is wrong with it, if anything is. Throws std::runtime_error, also at the end
// of a capture that is not whole, and what a sink throws.
int print_records(const Source &source, std::vector<std::unique_ptr<RecordSink>> sinks,
                  Selection selection = {});

} // namespace va
