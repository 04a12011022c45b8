#pragma once

#include "tools/common/verdict.h"

#include <string>

// A status as a JSON object on one line. Each dot of a key is a level, but those of a setting's key
// are part of it; values that are numbers are numbers. "verdict" and "exit_status" are there
// whether or not the daemon answers.
std::string status_json(const DaemonStatus &status, const Verdict &verdict);
