#include "tools/va_dump/metrics.h"

#include "tools/va_dump/status_lines.h"

#include <algorithm>

namespace
{

// Where the values of a metric stand.
enum class Of {
    Daemon,  // KEY
    Modules, // module.MODULE.KEY
    Streams, // stream.STREAM.KEY
};

enum class Value {
    Number,
    Runs,         // 1 when it says so
    Microseconds, // of which seconds are made
};

struct Metric {
    const char *name;
    const char *type;
    const char *help;
    const char *key;
    Of of;
    Value value = Value::Number;
};

constexpr Metric metrics[] = {
    {"va_analytics_up", "gauge", "1 while results can come.", "analytics.state", Of::Daemon,
     Value::Runs},
    {"va_uptime_seconds", "gauge", "Since the daemon's start.", "va.uptime", Of::Daemon},
    {"va_last_pass_age_seconds", "gauge", "Since the last round of reads.", "analytics.last_pass",
     Of::Daemon},
    {"va_module_up", "gauge", "1 while the module runs.", "state", Of::Modules, Value::Runs},
    {"va_module_last_result_age_seconds", "gauge", "Since the module's last result.", "last_result",
     Of::Modules},
    {"va_stream_clients", "gauge", "Connections.", "clients", Of::Streams},
    {"va_stream_records_total", "counter", "Records that there were.", "records", Of::Streams},
    {"va_stream_bytes_total", "counter", "Their payload.", "bytes", Of::Streams},
    {"va_stream_refused_total", "counter", "Records that a client had no room for.", "refused",
     Of::Streams},
    {"va_stream_longest_seconds", "gauge", "Longest way of a record to a client's socket.",
     "longest_us", Of::Streams, Value::Microseconds},
    {"va_stream_failed_accepts_total", "counter", "Connections that had to be tried again.",
     "failed_accepts", Of::Streams},
    {"va_lost_lines_total", "counter", "Lines of standard output that nobody took.",
     "va.lost_lines", Of::Daemon},
    {"va_control_unknown_total", "counter", "Control lines that are no command.", "control.unknown",
     Of::Daemon},
    {"va_settings_reloads_total", "counter", "How often settings were read again.",
     "settings.reloads", Of::Daemon},
};

std::string label(const std::string &name, std::string_view value)
{
    std::string text = name + "=\"";
    for (const char letter : value) {
        if (letter == '"' || letter == '\\')
            text += '\\';
        text += letter;
    }
    return text + '"';
}

std::string header(const std::string &name, const std::string &type, const std::string &help)
{
    return "# HELP " + name + ' ' + help + "\n# TYPE " + name + ' ' + type + '\n';
}

std::string number(Value kind, std::string_view value)
{
    switch (kind) {
    case Value::Runs:
        return value.starts_with("run") ? "1" : "0";
    case Value::Microseconds:
        return std::string(value) + "e-6";
    default:
        return std::string(value);
    }
}

// Empty when the status does not have it.
std::string sample(const DaemonStatus &status, const Metric &metric, const std::string &key,
                   const std::string &labels)
{
    const std::string_view value = status.value(key);
    if (value.empty() || value == "off" || (metric.value != Value::Runs && !is_number(value)))
        return "";
    return metric.name + labels + ' ' + number(metric.value, value) + '\n';
}

std::string samples(const DaemonStatus &status, const Metric &metric, const std::string &kind)
{
    std::string text;
    const std::string below = kind + '.';
    for (const std::string &name : names_below(status, below))
        text +=
            sample(status, metric, below + name + '.' + metric.key, '{' + label(kind, name) + '}');
    return text;
}

std::string samples(const DaemonStatus &status, const Metric &metric)
{
    switch (metric.of) {
    case Of::Modules:
        return samples(status, metric, "module");
    case Of::Streams:
        return samples(status, metric, "stream");
    default:
        return sample(status, metric, metric.key, "");
    }
}

std::string info(const DaemonStatus &status)
{
    return header("va_info", "gauge", "Always 1.") + "va_info{" +
           label("version", status.value("va.version")) + ',' +
           label("sensor", status.value("va.sensor")) + "} 1\n";
}

std::string left_out(const DaemonStatus &status)
{
    const auto count = std::ranges::count_if(
        status.lines, [](const auto &line) { return line.first.starts_with("left_out."); });
    return header("va_settings_left_out", "gauge", "Settings that do not count.") +
           "va_settings_left_out " + std::to_string(count) + '\n';
}

} // namespace

std::string metrics_of(const DaemonStatus &status)
{
    const bool answered = status.answer == DaemonStatus::Answer::Answered;
    const bool up = answered || status.answer == DaemonStatus::Answer::Unwritten;
    std::string text = header("va_up", "gauge", "1 when the daemon takes requests.") + "va_up " +
                       (up ? "1\n" : "0\n");
    if (!answered)
        return text;
    text += info(status);
    for (const Metric &metric : metrics) {
        const std::string values = samples(status, metric);
        if (!values.empty())
            text += header(metric.name, metric.type, metric.help) + values;
    }
    return text + left_out(status);
}
