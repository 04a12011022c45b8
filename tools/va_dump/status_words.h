#pragma once

#include "tools/common/verdict.h"

#include <string>

// A status for people, in lines; of a daemon that has not answered the verdict alone.
std::string status_words(const DaemonStatus &status, const Verdict &verdict);
