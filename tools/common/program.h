#pragma once

#include "tools/common/output.h"
#include "tools/common/source.h"

#include <functional>
#include <memory>
#include <vector>

// What every program here does the same way.

enum ExitStatus { RECORDS_CAME = 0, FAILED = 1, USED_WRONGLY = 2, NO_RECORDS = 3 };

// Its end of the manual.
extern const char EXIT_STATUSES[];

// Calls `body`, which returns an exit status, and tells people what it throws. Standard descriptors
// that are closed are opened before.
int run_program(const std::function<int()> &body);

// Hands the source's records, as far as they are wanted, to all printers. Returns an exit status; a
// standard output that nobody reads any more is a common end. Throws std::runtime_error, also at
// the end of a capture that is not whole, and what a printer throws.
int print_records(const Source &source, std::vector<std::unique_ptr<Printer>> printers,
                  Selection selection = {});
