#include "tools/va_dump/status_words.h"

#include "tools/common/text.h"
#include "tools/va_dump/status_lines.h"

namespace
{

class Words
{
public:
    explicit Words(const DaemonStatus &status) : status_(status) {}

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
        for (const std::string &name : names_below(status_, "module.")) {
            const std::string key = "module." + name;
            add(formatted("%-7s %-8s %-9s %s%s", name.c_str(), at(key + ".state"),
                          at(key + ".last_result"), at(key + ".why"),
                          *at(key + ".settings") ? "settings refused by the chip" : ""));
        }
    }

    void add_streams()
    {
        add("\nstream  client         records         bytes  refused   queued  longest us");
        for (const std::string &name : names_below(status_, "stream."))
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
        for (const std::string &number : names_below(status_, clients)) {
            const std::string client = clients + number;
            add_counts("", formatted("process %s", at(client + ".process")), client);
        }
    }

    // Values are ends of lines, and so end with a zero where they are kept.
    const char *at(const std::string &key) const
    {
        const std::string_view value = status_.value(key);
        return value.empty() ? "" : value.data();
    }

    void add_counts(const std::string &stream, const std::string &client, const std::string &key)
    {
        add(formatted("%-7s %-13s %9s %13s %8s %8s %11s", stream.c_str(), client.c_str(),
                      at(key + ".records"), at(key + ".bytes"), at(key + ".refused"),
                      at(key + ".queued"), at(key + ".longest_us")));
    }

    const DaemonStatus &status_;
    std::string text_;
};

} // namespace

std::string status_words(const DaemonStatus &status, const Verdict &verdict)
{
    Words words(status);
    words.add(verdict.text);
    if (status.answer == DaemonStatus::Answer::Answered) {
        words.add_daemon();
        words.add_modules();
        words.add_streams();
        words.add_control();
        words.add_settings("settings in force:", "setting.");
        words.add_settings("left out:", "left_out.");
    }
    return words.text();
}
