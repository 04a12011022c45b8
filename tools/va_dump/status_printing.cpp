#include "tools/va_dump/status_printing.h"

#include "tools/common/messages.h"
#include "util/text.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>

namespace va::dump
{

namespace
{

// Whether a value is a number as JSON writes it without an exponent.
bool is_number(std::string_view value)
{
    return value.find_first_not_of("-.0123456789") == value.npos && Json::accept(value);
}

class Lines
{
public:
    explicit Lines(const DaemonStatus &status) : status_(status) {}

    void add(const std::string &line) { text_ += line + '\n'; }

    void add_daemon()
    {
        add(formatted("version %s, process %s, since %s, which is %s s; sensor %s",
                      at("va.version"), at("va.process"), at("va.started"), at("va.uptime"),
                      at("va.sensor")));
        for (const char *const key : {"va.run_dir", "analytics.boot"}) {
            if (*at(key))
                add(formatted("%s: %s", key, at(key)));
        }
        if (const std::string lost = at("va.lost_lines"); !lost.empty() && lost != "0")
            add("lines of its output lost: " + lost);
    }

    void add_modules()
    {
        add("\nmodule  state    last result, s ago");
        for (const std::string &name : status_.names_below("module.")) {
            const std::string key = "module." + name;
            add(formatted("%-7s %-8s %-9s %s%s", name.c_str(), at(key + ".state"),
                          at(key + ".last_result"), at(key + ".why"),
                          *at(key + ".settings") ? "settings refused by the chip" : ""));
        }
    }

    void add_streams()
    {
        add("\nstream  client         records         bytes  refused   queued  longest us");
        for (const std::string &name : status_.names_below("stream."))
            add_stream(name, "stream." + name);
    }

    void add_control()
    {
        add(formatted("\ncontrol lines not understood: %s%s%s", at("control.unknown"),
                      *at("control.last_unknown") ? ", the last " : "",
                      at("control.last_unknown")));
        add(formatted("settings read again: %s%s%s", at("settings.reloads"),
                      *at("settings.last_reload") ? ", last at " : "", at("settings.last_reload")));
    }

    void add_reload()
    {
        for (const std::string &name : status_.names_below("module.")) {
            if (*at("module." + name + ".settings"))
                add(name + ": settings " + at("module." + name + ".settings"));
        }
        add_all_settings();
    }

    void add_all_settings()
    {
        add_settings("settings in force:", "setting.");
        add_settings("left out:", "left_out.");
    }

    void add_settings(const char *title, const std::string &section)
    {
        std::string settings;
        for (const auto &[key, value] : status_.lines) {
            if (key.starts_with(section))
                settings += "\n  " + key.substr(section.size()) + " = " + value;
        }
        add(std::string("\n") + title + (settings.empty() ? " none" : settings));
    }

    const std::string &text() const { return text_; }

private:
    void add_stream(const std::string &name, const std::string &key)
    {
        if (*at(key + ".missing")) {
            add(formatted("%-7s %s", name.c_str(), at(key + ".missing")));
            return;
        }
        add_counts(name, formatted("all %s", at(key + ".clients")), key);
        const std::string clients = key + ".client.";
        for (const std::string &number : status_.names_below(clients)) {
            const std::string client = clients + number;
            add_counts("", formatted("process %s", at(client + ".process")), client);
        }
    }

    const char *at(const std::string &key) const { return status_.value(key).data(); }

    void add_counts(const std::string &stream, const std::string &client, const std::string &key)
    {
        add(formatted("%-7s %-13s %9s %13s %8s %8s %11s", stream.c_str(), client.c_str(),
                      at(key + ".records"), at(key + ".bytes"), at(key + ".refused"),
                      at(key + ".queued"), at(key + ".longest_us")));
    }

    const DaemonStatus &status_;
    std::string text_;
};

// The member of an object that a key stands for.
Json &member(Json &json, const std::string &key)
{
    const std::size_t dot = key.find('.');
    if (!json.is_object())
        json = Json::object();
    if (dot == key.npos)
        return json[key];
    const std::string name = key.substr(0, dot);
    const std::string rest = key.substr(dot + 1);
    const bool is_setting = name == "setting" || name == "left_out";
    return is_setting ? json[name][rest] : member(json[name], rest);
}

Json value_json(const std::string &value)
{
    return is_number(value) ? Json::parse(value) : Json(value);
}

enum class Value {
    Number,
    Runs,         // 1 when it says so
    Microseconds, // of which seconds are made
};

struct Metric {
    const char *name;
    const char *type;
    const char *help;
    std::string_view key; // "*": a value for each name that stands there
    Value value = Value::Number;
};

constexpr Metric metrics[] = {
    {"va_analytics_up", "gauge", "1 while results can come.", "analytics.state", Value::Runs},
    {"va_uptime_seconds", "gauge", "Since the daemon's start.", "va.uptime"},
    {"va_last_pass_age_seconds", "gauge", "Since the last round of reads.", "analytics.last_pass"},
    {"va_module_up", "gauge", "1 while the module runs.", "module.*.state", Value::Runs},
    {"va_module_last_result_age_seconds", "gauge", "Since the module's last result.",
     "module.*.last_result"},
    {"va_stream_clients", "gauge", "Connections.", "stream.*.clients"},
    {"va_stream_records_total", "counter", "Records that there were.", "stream.*.records"},
    {"va_stream_bytes_total", "counter", "Their payload.", "stream.*.bytes"},
    {"va_stream_refused_total", "counter", "Records that a client had no room for.",
     "stream.*.refused"},
    {"va_stream_longest_seconds", "gauge", "Longest way of a record to a client's socket.",
     "stream.*.longest_us", Value::Microseconds},
    {"va_stream_failed_accepts_total", "counter", "Connections that had to be tried again.",
     "stream.*.failed_accepts"},
    {"va_lost_lines_total", "counter", "Lines of standard output that nobody took.",
     "va.lost_lines"},
    {"va_control_unknown_total", "counter", "Control lines that are no command.",
     "control.unknown"},
    {"va_settings_reloads_total", "counter", "How often settings were read again.",
     "settings.reloads"},
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

std::string samples(const DaemonStatus &status, const Metric &metric)
{
    const std::string key(metric.key);
    const std::size_t star = key.find('*');
    if (star == key.npos)
        return sample(status, metric, key, "");
    std::string text;
    const std::string below = key.substr(0, star);
    const std::string kind = key.substr(0, key.find('.'));
    for (const std::string &name : status.names_below(below))
        text += sample(status, metric, below + name + key.substr(star + 1),
                       '{' + label(kind, name) + '}');
    return text;
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

std::string status_text(const DaemonStatus &status, const Verdict &verdict)
{
    Lines words(status);
    words.add(verdict.text);
    if (status.answer == DaemonStatus::Answer::Answered) {
        words.add_daemon();
        words.add_modules();
        words.add_streams();
        words.add_control();
        words.add_all_settings();
    }
    return words.text();
}

std::string settings_text(const DaemonStatus &status, const Verdict &verdict)
{
    Lines lines(status);
    lines.add(verdict.text);
    if (status.answer == DaemonStatus::Answer::Answered)
        lines.add_reload();
    return lines.text();
}

std::string status_json(const DaemonStatus &status, const Verdict &verdict)
{
    Json json = {{"verdict", verdict.text}, {"exit_status", static_cast<int>(verdict.status)}};
    for (const auto &[key, value] : status.lines)
        member(json, key) = value_json(value);
    return text_of(json);
}

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

} // namespace va::dump
