#pragma once

#include "ipc/client/daemon_status.h"

#include <string>

// A status in Prometheus' text format, for instance for node_exporter's textfile collector. va_up
// is there whether or not the daemon answers.
std::string metrics_of(const DaemonStatus &status);
