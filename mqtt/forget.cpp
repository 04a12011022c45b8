#include "mqtt/forget.h"

#include "mqtt/broker.h"
#include "mqtt/discovery.h"
#include "tools/common/printing.h"

#include <stdexcept>
#include <string>
#include <thread>

namespace va::mqtt
{

namespace
{

using namespace std::chrono_literals;

constexpr auto timeout = 30s;
constexpr char unreadable[] = "the account may not read what is retained";

// Rooms of one camera: below a prefix that stands for many there are their prefixes in the places
// of these.
Broker::Subscriptions all_of(const Settings &settings)
{
    const std::string &prefix = settings.names.prefix;
    Broker::Subscriptions all{
        .retained = {prefix + "/va/#", prefix + "/onvif-ej/#", prefix + "/onvif-mj/#"}};
    if (!settings.discovery.empty())
        all.retained.push_back(discovery_filter(settings));
    return all;
}

void check(const Broker::Report &report)
{
    if (report.failure)
        throw std::runtime_error(*report.failure);
    if (report.unreadable)
        throw std::runtime_error(unreadable);
    if (report.refused > 0)
        throw std::runtime_error("the account may not take back what is retained");
}

// Returns how many messages it took back.
std::size_t forget_some(const Settings &settings)
{
    Broker::Subscriptions all = all_of(settings);
    all.end = settings.names.prefix + "/va/forget";
    const auto broker = Broker::open(settings, std::nullopt, all);
    broker->event(all.end, "{}", false); // comes back to who may read
    const auto end = std::chrono::steady_clock::now() + timeout;
    const auto wait_for = [&](auto is_done) {
        while (!is_done()) {
            check(broker->report());
            if (std::chrono::steady_clock::now() > end)
                throw std::runtime_error(broker->report().connected ? unreadable
                                                                    : broker->report().status);
            std::this_thread::sleep_for(100ms);
        }
    };
    std::optional<std::map<std::string, std::string>> retained;
    wait_for([&] { return (retained = broker->take_retained()).has_value(); });
    check(broker->report());
    for (const auto &[topic, payload] : *retained)
        broker->state(topic, "");
    wait_for([&] { return broker->report().waiting == 0; });
    check(broker->report());
    broker->finish(0s);
    return retained->size();
}

} // namespace

void forget(Settings settings)
{
    settings.spool.clear();         // which is of the one that publishes
    constexpr int most_passes = 10; // a broker may not tell all at once
    std::size_t all = 0;
    for (int pass = 0; const std::size_t some = forget_some(settings); ++pass) {
        if (pass == most_passes)
            throw std::runtime_error("there is always more: does the camera run?");
        all += some;
    }
    say("taken back: " + std::to_string(all) + " messages of " + settings.names.prefix);
}

} // namespace va::mqtt
