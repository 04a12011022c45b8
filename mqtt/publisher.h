#pragma once

#include "mqtt/broker.h"
#include "tools/common/message_maker.h"
#include "tools/common/sink.h"
#include "tools/common/still_file.h"
#include "util/notify.h"

#include <future>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace va::mqtt
{

// Hands a camera's messages to the broker, with what Home Assistant wants, what was lost, and the
// newest still, which is retained as long as there are new ones.
//
// A supervisor is notified: ready with the first pass, whether or not broker and daemon are there,
// which is its status; alive with each pass, at most twice in the interval that it asks for.
class Publisher : public RecordSink
{
public:
    Publisher(const Settings &settings, const Source &source);
    void record(const Record &record) override { maker_.record(record); }
    void connection(const Connection &connection) override { maker_.connection(connection); }
    bool wants_status() const override { return true; }
    void status(const Moment &now, const DaemonStatus &status) override;
    void verdict(const Moment &now, const Verdict &verdict) override
    {
        maker_.verdict(now, verdict);
    }
    // Throws std::runtime_error when the broker refuses for good.
    void tick(const Moment &now) override;
    Elapsed due() const override;
    void report(const Moment &now) override;
    void finish(const Moment &now) override;

private:
    void publish_still(Elapsed now);
    void take_back_still() { broker_->state(maker_.topics().still(), ""); }
    void publish_discovery();
    void reload();
    void report_losses(const Moment &now, const Broker::Report &broker);
    std::string status_text(const Broker::Report &broker) const;

    const Settings settings_;
    const std::string directory_; // of the daemon
    Notifier notifier_;           // before the broker's thread, for the sake of the environment
    std::shared_ptr<Broker> broker_;
    MessageMaker maker_;
    std::optional<StillFile> still_;
    std::optional<std::future<void>> reload_;
    std::optional<Losses> reported_;
    std::optional<std::vector<AlarmRule>> rules_; // in force, once they are known
    std::set<std::string> discovered_;            // topics that are retained
    Elapsed losses_due_{};
    Elapsed alive_due_;
};

} // namespace va::mqtt
