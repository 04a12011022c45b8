#include "event/loop.h"
#include "util/file.h"
#include "util/text.h"
#include "va/log.h"
#include "va/paths.h"
#include "va/report.h"
#include "va/run_dir.h"
#include "va/va.h"

#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <new>
#include <string>

#include <unistd.h>

namespace
{

using SystemTime = std::chrono::system_clock::time_point;

// Close enough to the start of the process.
const SystemTime started = std::chrono::system_clock::now();
const auto started_steady = std::chrono::steady_clock::now();

std::uint32_t writes = 0; // distinguishes one file from the next

// Appends "KEY: VALUE".
[[gnu::format(printf, 2, 3)]] void add(std::string &lines, const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    lines += va::formatted_list(format, arguments) + '\n';
    va_end(arguments);
}

void add_time(std::string &lines, const char *key, SystemTime time)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    char text[32] = "";
    std::tm utc{};
    if (gmtime_r(&seconds, &utc))
        std::strftime(text, sizeof text, "%FT%TZ", &utc);
    add(lines, "%s: %s", key, text);
}

void add_age(std::string &lines, const std::string &key, std::optional<va::Stamp::Age> age)
{
    if (age)
        add(lines, "%s: %" PRId32 ".%" PRId32, key.c_str(), age->count() / 10, age->count() % 10);
}

void add_daemon(std::string &lines, const VaContext &context)
{
    const auto uptime = std::chrono::steady_clock::now() - started_steady;
    const SensorConfig &sensor = context.sensorConf;
    add(lines, "va.version: %s", VA_VERSION);
    add(lines, "va.process: %d", static_cast<int>(getpid()));
    add_time(lines, "va.started", started);
    add(lines, "va.uptime: %" PRId64,
        std::int64_t{std::chrono::duration_cast<std::chrono::seconds>(uptime).count()});
    add_time(lines, "va.written", std::chrono::system_clock::now());
    add(lines, "va.writes: %" PRIu32, ++writes);
    add(lines, "va.sensor: %s %" PRId32 "x%" PRId32 " %" PRId32 "/s", sensor.sensor, sensor.width,
        sensor.height, sensor.fps);
    add(lines, "va.lost_lines: %" PRIu32, va::lost_output_lines());
    if (*va::run_dir_fault())
        add(lines, "va.run_dir: %s", va::run_dir_fault());
}

void add_analytics(std::string &lines, const VaHealth &health)
{
    const VaHealth::Analytics analytics = health.analytics();
    const VaHealth::Record record = health.record();
    if (*record.first_boot_failure.text)
        add(lines, "analytics.boot: failed the first time, %s", record.first_boot_failure.text);
    add(lines, "analytics.state: %s", va::name_of(analytics));
    if (analytics == VaHealth::Analytics::Ended)
        add(lines, "analytics.why: %s", record.why_ended.text);
    add_age(lines, "analytics.last_pass", health.since_last_pass());
    for (const VaModule number : va_modules) {
        const VaHealth::Module &module = record.of(number);
        const std::string key = std::string("module.") + va::name_of(number);
        add(lines, "%s.state: %s", key.c_str(), va::name_of(module.state));
        if (module.state == VaHealth::State::Failed)
            add(lines, "%s.why: %s", key.c_str(), module.reason.text);
        if (module.refused)
            add(lines, "%s.settings: refused by the chip", key.c_str());
        add_age(lines, key + ".last_result", health.since_result(number));
    }
}

void add_counts(std::string &lines, const std::string &key, const sck_counts_t &counts)
{
    add(lines, "%s.records: %" PRIu64, key.c_str(), counts.records);
    add(lines, "%s.bytes: %" PRIu64, key.c_str(), counts.bytes);
    add(lines, "%s.refused: %" PRIu64, key.c_str(), counts.refused);
}

void add_stream(std::string &lines, const std::string &key, const sck_svr_status_t &status)
{
    add(lines, "%s.clients: %zu", key.c_str(), status.clients.size());
    add_counts(lines, key, status.counts);
    add(lines, "%s.longest_us: %" PRIu32, key.c_str(), status.longest_us);
    add(lines, "%s.failed_accepts: %" PRIu64, key.c_str(), status.failed_accepts);
    if (!status.listens)
        add(lines, "%s.missing: its socket does not listen", key.c_str());
    int number = 0;
    for (const sck_clt_status_t &client : status.clients) {
        const std::string client_key = key + ".client." + std::to_string(++number);
        add(lines, "%s.process: %" PRId32, client_key.c_str(), client.pid);
        add_counts(lines, client_key, client.counts);
        add(lines, "%s.queued: %" PRIu32, client_key.c_str(), client.queued);
    }
}

void add_streams(std::string &lines, const VaContext &context)
{
    for (const VaStream &stream : va_streams) {
        if (!(context.*stream.enabled))
            continue;
        const std::string key = std::string("stream.") + (std::strrchr(stream.path, '/') + 1);
        sck_svr_status_t status;
        if (sck_svr_get_status(context.*stream.server, &status) == 0)
            add_stream(lines, key, status);
        else
            add(lines, "%s.missing: its socket could not be made", key.c_str());
    }
}

void add_control(std::string &lines, const VaContext &context)
{
    msg_unknown unknown;
    if (msg_get_unknown(context.msg, &unknown) != 0)
        return;
    add(lines, "control.unknown: %" PRIu32, unknown.count);
    if (unknown.count > 0)
        add(lines, "control.last_unknown: %s", unknown.last);
}

void add_settings(std::string &lines, const va::SettingsReport &settings)
{
    const va::SettingsReport::Shown shown = settings.shown();
    add(lines, "settings.reloads: %" PRIu32, shown.reloads);
    if (shown.reloads > 0)
        add_time(lines, "settings.last_reload", shown.last_reload);
    if (!shown.is_complete)
        add(lines, "settings.incomplete: memory was short");
    lines += shown.lines;
}

std::string status_of(const VaContext &context)
{
    std::string lines;
    add_daemon(lines, context);
    if (context.report)
        add_analytics(lines, context.report->health);
    add_streams(lines, context);
    add_control(lines, context);
    if (context.report)
        add_settings(lines, context.report->settings);
    return lines;
}

// False with the reason in errno.
bool write_status(const VaContext &context)
try {
    return va::replace_file(va_status_path, status_of(context), 0644) == 0;
} catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return false;
}

// Writes the file, four times a second at most: a request that comes sooner waits for the next
// time, which answers all.
class Answers
{
public:
    explicit Answers(const VaContext &context) : context_(context) {}

    void request()
    {
        using std::chrono::ceil, std::chrono::milliseconds;
        if (is_pending_)
            return;
        const auto wait = ceil<milliseconds>(next_ - steady_clock::now());
        // Made at once when memory is short.
        is_pending_ = wait > wait.zero() &&
                      add_timer_event(static_cast<int>(wait.count()), EVENT_ONESHOT, on_time, this);
        if (!is_pending_)
            answer();
    }

private:
    using steady_clock = std::chrono::steady_clock;

    static std::int32_t on_time(event_info *, void *answers)
    {
        static_cast<Answers *>(answers)->answer();
        return 0;
    }

    void answer()
    {
        // A timer may be served 4 ms early.
        constexpr std::chrono::milliseconds interval{255};
        is_pending_ = false;
        next_ = steady_clock::now() + interval;
        const bool written = write_status(context_);
        if (!written && !failing_)
            va::log_error("Can't write %s: %s.", va_status_path, std::strerror(errno));
        failing_ = !written;
    }

    const VaContext &context_;
    steady_clock::time_point next_{}; // no file before that
    bool is_pending_ = false;
    bool failing_ = false;
};

} // namespace

int va_msg_status(void *argument, const char *, int)
{
    static Answers answers(*static_cast<const VaContext *>(argument)); // there is one context
    answers.request();
    return 0;
}

void va_remove_status()
{
    unlink(va_status_path);
}
