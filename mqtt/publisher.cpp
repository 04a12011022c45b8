#include "mqtt/publisher.h"

#include "client/status.h"
#include "mqtt/discovery.h"
#include "tools/common/printing.h"
#include "util/text.h"

#include <cinttypes>
#include <stdexcept>

namespace va::mqtt
{

namespace
{

using namespace std::chrono_literals;

constexpr auto losses_interval = 10s;
constexpr auto finish_timeout = 2s;

std::chrono::seconds still_kept(const Settings &settings)
{
    return std::max<std::chrono::seconds>(1min, std::chrono::seconds(3 * settings.still_interval));
}

StillFile still_of(const Settings &settings)
{
    const std::chrono::seconds interval(settings.still_interval);
    return {settings.still,
            {.poll = 200ms,
             .interval = interval,
             .kept = still_kept(settings),
             .largest = settings.still_size}};
}

Message last_will(const CameraNames &names)
{
    return {Topics(names).available(),
            available_message({.online = false, .why = "the connection was lost"}), true};
}

Broker::Subscriptions subscriptions(const Settings &settings)
{
    Broker::Subscriptions all{.retained = {Topics(settings.names).events() + '#'},
                              .command =
                                  settings.reconfig ? Topics(settings.names).reconfig() : ""};
    if (!settings.discovery.empty())
        all.retained.push_back(discovery_filter(settings));
    return all;
}

} // namespace

Publisher::Publisher(const Settings &settings, const Source &source)
    : settings_(settings),
      directory_(source.directory),
      notifier_([](const char *text) { say(text); }),
      broker_(Broker::open(settings, last_will(settings.names), subscriptions(settings))),
      maker_(settings.names, source, settings.rate, *broker_),
      alive_due_(notifier_.interval() > 0us ? Elapsed() : Elapsed::max())
{
    maker_.expect_states(broker_->spooled_states());
    if (settings.still.empty())
        return;
    still_.emplace(still_of(settings));
    take_back_still(); // of an earlier run
}

void Publisher::status(const Moment &now, const DaemonStatus &status)
{
    const auto scene = scene_of(status);
    if (!scene)
        return;
    maker_.status(now, *scene);
    rules_ = scene->rules;
    publish_discovery();
}

void Publisher::publish_discovery()
{
    if (settings_.discovery.empty() || !rules_)
        return;
    for (const auto &[topic, payload] :
         discovery_states(*rules_, settings_, maker_.topics(), discovered_))
        broker_->state(topic, payload);
}

void Publisher::tick(const Moment &now)
{
    maker_.tick(now);
    publish_still(now.at);
    if (const auto retained = broker_->take_retained()) {
        maker_.earlier_states(*retained);
        for (const auto &[topic, payload] : *retained)
            discovered_.insert(topic);
        publish_discovery();
    }
    if (broker_->take_command())
        reload();
    const Broker::Report broker = broker_->report();
    if (broker.failure) {
        broker_->finish(0s);
        throw std::runtime_error(*broker.failure);
    }
    report_losses(now, broker);
    const bool alive = now.at >= alive_due_;
    if (alive)
        alive_due_ = now.at + notifier_.interval() / 2;
    notifier_.notify(status_text(broker), alive);
}

Elapsed Publisher::due() const
{
    return still_ ? std::min(still_->due(), alive_due_) : alive_due_;
}

void Publisher::report(const Moment &)
{
    const Broker::Report broker = broker_->report();
    say(formatted("broker: %s; frames sent %" PRIu64 ", dropped %" PRIu64 "; events sent %" PRIu64
                  ", dropped %" PRIu64 ", refused %" PRIu64 ", waiting %zu",
                  broker.status.c_str(), broker.frames_sent, broker.frames_dropped,
                  broker.events_sent, broker.events_dropped, broker.refused, broker.waiting));
}

void Publisher::finish(const Moment &now)
{
    notifier_.send("STOPPING=1\nSTATUS=sends what waits");
    maker_.finish(now);
    maker_.end();
    if (still_)
        take_back_still();
    broker_->finish(finish_timeout);
}

void Publisher::publish_still(Elapsed now)
{
    const auto still = still_ ? still_->look(now) : std::nullopt;
    if (!still)
        return;
    if (still->jpeg.empty())
        take_back_still();
    else
        broker_->send_still(maker_.topics().still(), still->jpeg,
                            static_cast<unsigned>(still_kept(settings_).count()));
}

// Waits for the daemon in a thread of its own; one at a time.
void Publisher::reload()
{
    if (reload_ && reload_->wait_for(0s) != std::future_status::ready)
        return;
    say("the daemon is asked to read its settings again");
    reload_ = std::async(std::launch::async, [directory = directory_] {
        const Verdict verdict = judge(reload_settings(directory));
        say(verdict.status == IS_WELL ? "the daemon has read its settings again" : verdict.text);
    });
}

void Publisher::report_losses(const Moment &now, const Broker::Report &broker)
{
    const Losses losses{.frames = broker.frames_dropped,
                        .events = broker.events_dropped,
                        .results = maker_.results_missed(),
                        .refused = broker.refused};
    if (losses == reported_ || (reported_ && (!broker.connected || now.at < losses_due_)))
        return;
    const Losses before = std::exchange(reported_, losses).value_or(losses);
    losses_due_ = now.at + losses_interval;
    broker_->state(maker_.topics().lost(), losses_message(losses, now.time));
    // What the broker refuses goes on; its beginning was reported.
    if (before.frames + before.events + before.results <
        losses.frames + losses.events + losses.results)
        say(formatted("lost so far: %" PRIu64 " frames, %" PRIu64 " events, %" PRIu64
                      " results of the daemon",
                      losses.frames, losses.events, losses.results));
}

std::string Publisher::status_text(const Broker::Report &broker) const
{
    const Availability &camera = maker_.availability();
    return "broker: " + broker.status + "; " +
           (camera.why.empty() ? "the daemon is here" : camera.why);
}

} // namespace va::mqtt
