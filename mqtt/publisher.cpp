#include "mqtt/publisher.h"

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

StillFile still_of(const Settings &settings)
{
    const std::chrono::seconds interval(settings.still_interval);
    return {settings.still,
            {.poll = 200ms,
             .interval = interval,
             .kept = std::max<Elapsed>(1min, 3 * interval),
             .largest = settings.still_size}};
}

} // namespace

Publisher::Publisher(const Settings &settings, const Source &source)
    : settings_(settings),
      notifier_([](const char *text) { say(text); }),
      broker_(Broker::open(settings,
                           {Topics(settings.names).available(),
                            available_message({.online = false, .why = "the connection was lost"}),
                            true})),
      maker_(settings.names, source, settings.rate, *broker_),
      alive_due_(notifier_.interval() > 0us ? Elapsed() : Elapsed::max())
{
    if (!settings.still.empty())
        still_.emplace(still_of(settings));
    take_back_still(); // of an earlier run
}

void Publisher::status(const Moment &now, const DaemonStatus &status)
{
    const auto scene = scene_of(status);
    if (!scene)
        return;
    maker_.status(now, *scene);
    if (settings_.discovery.empty())
        return;
    for (const auto &[topic, payload] : discovery_states(scene->rules, settings_, maker_.topics()))
        broker_->state(topic, payload);
}

void Publisher::tick(const Moment &now)
{
    maker_.tick(now);
    publish_still(now.at);
    const Broker::Report broker = broker_->report();
    if (broker.failure)
        throw std::runtime_error(*broker.failure);
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
                  ", dropped %" PRIu64 ", waiting %zu",
                  broker.status.c_str(), broker.frames_sent, broker.frames_dropped,
                  broker.events_sent, broker.events_dropped, broker.waiting));
}

void Publisher::finish(const Moment &now)
{
    notifier_.send("STOPPING=1\nSTATUS=sends what waits");
    maker_.finish(now);
    maker_.end();
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
        broker_->send_still(maker_.topics().still(), still->jpeg);
}

void Publisher::report_losses(const Moment &now, const Broker::Report &broker)
{
    const Losses losses{broker.frames_dropped, broker.events_dropped, maker_.results_missed(), 0};
    if (losses == reported_ || !broker.connected || now.at < losses_due_)
        return;
    reported_ = losses;
    losses_due_ = now.at + losses_interval;
    broker_->event(maker_.topics().lost(), losses_message(losses, now.time), false);
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
