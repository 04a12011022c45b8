#include "va/status.h"

#include "event/loop.h"
#include "util/file.h"
#include "util/text.h"
#include "va/context.h"
#include "va/log.h"
#include "va/output.h"
#include "va/paths.h"
#include "va/report.h"
#include "va/run_watch.h"
#include "va/streams.h"

#include <algorithm>
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
using Analytics = VaHealth::Analytics;
using State = VaHealth::State;

// Of the process, as good as.
const SystemTime started = std::chrono::system_clock::now();
const auto started_steady = std::chrono::steady_clock::now();

std::uint32_t writes = 0; // tells one file from the next

// "KEY: VALUE" each.
class Lines
{
public:
    __attribute__((format(printf, 2, 3))) void add(const char *format, ...)
    {
        std::va_list arguments;
        va_start(arguments, format);
        text_ += va::formatted_list(format, arguments) + '\n';
        va_end(arguments);
    }

    void add_time(const char *key, SystemTime time)
    {
        const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
        char text[32] = "";
        std::tm utc{};
        if (gmtime_r(&seconds, &utc))
            std::strftime(text, sizeof text, "%FT%TZ", &utc);
        add("%s: %s", key, text);
    }

    void append(const std::string &lines) { text_ += lines; }
    const std::string &text() const { return text_; }

private:
    std::string text_;
};

const char *word_for(Analytics analytics)
{
    switch (analytics) {
    case Analytics::start:
        return "start";
    case Analytics::run:
        return "run";
    case Analytics::hang:
        return "hang";
    default:
        return "ended";
    }
}

const char *word_for(State state)
{
    switch (state) {
    case State::off:
        return "off";
    case State::opens:
        return "opens";
    case State::runs:
        return "runs";
    case State::failed:
        return "failed";
    default:
        return "stopped";
    }
}

void add_age(Lines &lines, const std::string &key, std::optional<Stamp::Age> age)
{
    if (age)
        lines.add("%s: %" PRId32 ".%" PRId32, key.c_str(), age->count() / 10, age->count() % 10);
}

void add_daemon(Lines &lines, const VaContext &context)
{
    const auto uptime = std::chrono::steady_clock::now() - started_steady;
    const SensorConfig &sensor = context.sensorConf;
    lines.add("va.version: %s", VA_VERSION);
    lines.add("va.process: %d", static_cast<int>(getpid()));
    lines.add_time("va.started", started);
    lines.add("va.uptime: %" PRId64,
              std::int64_t{std::chrono::duration_cast<std::chrono::seconds>(uptime).count()});
    lines.add_time("va.written", std::chrono::system_clock::now());
    lines.add("va.writes: %" PRIu32, ++writes);
    lines.add("va.sensor: %s %" PRId32 "x%" PRId32 " %" PRId32 "/s", sensor.sensor, sensor.width,
              sensor.height, sensor.fps);
    lines.add("va.lost_lines: %" PRIu32, lost_output_lines());
    if (*run_dir_fault())
        lines.add("va.run_dir: %s", run_dir_fault());
}

void add_analytics(Lines &lines, const VaHealth &health)
{
    const Analytics analytics = health.analytics();
    if (const VaHealth::Reason why = health.first_boot_failure(); *why.text)
        lines.add("analytics.boot: failed the first time, %s", why.text);
    lines.add("analytics.state: %s", word_for(analytics));
    if (analytics == Analytics::ended)
        lines.add("analytics.why: %s", health.why_ended().text);
    add_age(lines, "analytics.last_pass", health.since_last_pass());
    for (const VaModule number : va_modules) {
        const VaHealth::Module module = health.module(number);
        const std::string key = std::string("module.") + name_of(number);
        lines.add("%s.state: %s", key.c_str(), word_for(module.state));
        if (module.state == State::failed)
            lines.add("%s.why: %s", key.c_str(), module.reason.text);
        if (module.refused)
            lines.add("%s.settings: refused by the chip", key.c_str());
        add_age(lines, key + ".last_result", health.since_result(number));
    }
}

void add_counts(Lines &lines, const std::string &key, const sck_counts_t &counts)
{
    lines.add("%s.records: %" PRIu64, key.c_str(), counts.records);
    lines.add("%s.bytes: %" PRIu64, key.c_str(), counts.bytes);
    lines.add("%s.refused: %" PRIu64, key.c_str(), counts.refused);
}

void add_stream(Lines &lines, const std::string &key, const sck_svr_status_t &status)
{
    lines.add("%s.clients: %zu", key.c_str(), status.clients.size());
    add_counts(lines, key, status.counts);
    lines.add("%s.longest_us: %" PRIu32, key.c_str(), status.longest_us);
    lines.add("%s.failed_accepts: %" PRIu64, key.c_str(), status.failed_accepts);
    if (!status.listens)
        lines.add("%s.missing: its socket does not listen", key.c_str());
    int number = 0;
    for (const sck_clt_status_t &client : status.clients) {
        const std::string client_key = key + ".client." + std::to_string(++number);
        lines.add("%s.process: %" PRId32, client_key.c_str(), client.pid);
        add_counts(lines, client_key, client.counts);
        lines.add("%s.queued: %" PRIu32, client_key.c_str(), client.queued);
    }
}

const char *name_of(const VaStream &stream)
{
    return std::strrchr(stream.path, '/') + 1;
}

void add_streams(Lines &lines, const VaContext &context)
{
    for (const VaStream &stream : va_streams) {
        if (!(context.*stream.enabled))
            continue;
        const std::string key = std::string("stream.") + name_of(stream);
        sck_svr_status_t status;
        if (sck_svr_get_status(context.*stream.server, &status) == 0)
            add_stream(lines, key, status);
        else
            lines.add("%s.missing: its socket could not be made", key.c_str());
    }
}

void add_control(Lines &lines, const VaContext &context)
{
    msg_unknown unknown;
    if (msg_get_unknown(context.msg, &unknown) != 0)
        return;
    lines.add("control.unknown: %" PRIu32, unknown.count);
    if (unknown.count > 0)
        lines.add("control.last_unknown: %s", unknown.last);
}

void add_settings(Lines &lines, const VaSettings &settings)
{
    const VaSettings::Shown shown = settings.shown();
    lines.add("settings.reloads: %" PRIu32, shown.reloads);
    if (shown.reloads > 0)
        lines.add_time("settings.last_reload", shown.last_reload);
    if (!shown.is_complete)
        lines.add("settings.incomplete: memory was short");
    lines.append(shown.lines);
}

std::string status_of(const VaContext &context)
{
    Lines lines;
    add_daemon(lines, context);
    if (context.report)
        add_analytics(lines, context.report->health);
    add_streams(lines, context);
    add_control(lines, context);
    if (context.report)
        add_settings(lines, context.report->settings);
    return lines.text();
}

// False with the reason in errno.
bool write_status(const VaContext &context)
{
    try {
        return va::replace_file(va_status_path, status_of(context), 0644) == 0;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return false;
    }
}

// The files, four a second at most: a request that comes sooner waits for the next one, which then
// answers all.
class Answers
{
public:
    void request(const VaContext &context)
    {
        using std::chrono::ceil, std::chrono::milliseconds;
        if (awaited_)
            return;
        const auto wait = ceil<milliseconds>(next_ - steady_clock::now());
        // Made at once when memory is short.
        awaited_ =
            wait > wait.zero() && add_timer_event(static_cast<int>(wait.count()), EVENT_ONESHOT,
                                                  on_time, const_cast<VaContext *>(&context));
        if (!awaited_)
            answer(context);
    }

private:
    using steady_clock = std::chrono::steady_clock;

    static std::int32_t on_time(event_info *, void *context);

    void answer(const VaContext &context)
    {
        // A timer may be served 4 ms early.
        constexpr std::chrono::milliseconds interval{255};
        awaited_ = false;
        next_ = steady_clock::now() + interval;
        const bool written = write_status(context);
        if (!written && !failing_)
            log_error("Can't write %s: %s.", va_status_path, std::strerror(errno));
        failing_ = !written;
    }

    steady_clock::time_point next_{}; // no file before
    bool awaited_ = false;            // one is on its way
    bool failing_ = false;
};

Answers answers;

std::int32_t Answers::on_time(event_info *, void *context)
{
    answers.answer(*static_cast<const VaContext *>(context));
    return 0;
}

} // namespace

int va_msg_status(void *argument, const char *, int)
{
    answers.request(*static_cast<const VaContext *>(argument));
    return 0;
}

void remove_status_file()
{
    unlink(va_status_path);
}
