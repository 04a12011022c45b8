#pragma once

#include "client/verdict.h"

#include <string>

// The daemon's status as va_dump prints it.
namespace va::dump
{

// For people, in lines; of a daemon that has not answered the verdict alone.
std::string status_text(const DaemonStatus &status, const Verdict &verdict);

// The settings in force and those left out, likewise.
std::string settings_text(const DaemonStatus &status, const Verdict &verdict);

// As a JSON object on one line. Each dot of a key is a level, but those of a setting's key are part
// of it; values that are numbers are numbers. "verdict" and "exit_status" are there whether or not
// the daemon answers.
std::string status_json(const DaemonStatus &status, const Verdict &verdict);

// In Prometheus' text format, for instance for node_exporter's textfile collector. va_up is there
// whether or not the daemon answers.
std::string metrics_of(const DaemonStatus &status);

} // namespace va::dump
