#pragma once

#include "ipc/client/daemon_status.h"

#include <string>
#include <string_view>
#include <vector>

// A status taken apart by its keys.

// The next piece of the keys that begin so, up to a dot, each once: "od" and "fd" below "module.".
std::vector<std::string> names_below(const DaemonStatus &status, std::string_view beginning);

// Whether a value is a number as JSON writes it.
bool is_number(std::string_view value);
