#include "tools/common/program.h"
#include "tools/va_picture/backdrop.h"

#include <string>
#include <utility>

namespace va::picture
{

namespace
{

constexpr char introduction[] =
    "usage: va_picture [option...] FILE.html\n"
    "Writes FILE.html, a page to open in a browser, without a server: the windows, masks, lines "
    "and\n"
    "areas that the video-analytics daemon has in force, the objects and faces that it sees,\n"
    "alarms, the last events. The page follows by FILE.js and FILE.new.js, which are kept up to\n"
    "date beside it. Sockets that do not exist yet are waited for.\n"
    "\n";

// Keeps the messages beside a page up to date. The camera is called as the host.
class PicturePrinter : public RecordSink
{
public:
    PicturePrinter(const std::string &page, const Source &source, const std::string &still)
        : is_live_(source.capture.empty()), file_(page, is_live_ ? 1 : source.pace)
    {
        const CameraNames names{.prefix = host_name()};
        if (!still.empty())
            backdrop_.emplace(still, Topics(names).still(), file_);
        MessageTarget &target = backdrop_ ? static_cast<MessageTarget &>(*backdrop_) : file_;
        maker_.emplace(names, source, frames_per_second, target);
        maker_->earlier_states({}); // a page begins anew
        if (!is_live_)              // nobody says its frame, which usually is this one
            maker_->status({std::chrono::system_clock::now(), {}}, {{1920, 1080}, {}, {}});
        file_.write_whole();
    }

    void record(const Record &record) override
    {
        file_.set_time(record.at);
        maker_->record(record);
    }

    void connection(const Connection &connection) override { maker_->connection(connection); }
    bool wants_status() const override { return true; }

    void status(const Moment &now, const DaemonStatus &status) override
    {
        if (const auto scene = scene_of(status))
            maker_->status(now, *scene);
    }

    void verdict(const Moment &now, const Verdict &verdict) override
    {
        maker_->verdict(now, verdict);
    }

    void tick(const Moment &now) override
    {
        file_.set_time(now.at);
        maker_->tick(now);
        if (backdrop_)
            backdrop_->look(now.at);
        file_.write_when_due();
    }

    Elapsed due() const override
    {
        return backdrop_ ? std::min(file_.due(), backdrop_->due()) : file_.due();
    }

    void finish(const Moment &now) override
    {
        file_.set_time(now.at);
        maker_->finish(now);
        if (is_live_) // else its last moment is what there is to see
            maker_->end();
        file_.write_whole();
    }

private:
    static constexpr double frames_per_second = 20; // more than there are results

    bool is_live_;
    MessageFile file_;
    std::optional<Backdrop> backdrop_;
    std::optional<MessageMaker> maker_;
};

const char *page_of(std::span<char *const> files)
{
    if (files.size() != 1)
        throw WrongUse(files.empty() ? "no file is named" : "more than one file is named");
    if (!std::string_view(files[0]).ends_with(".html"))
        throw WrongUse(files[0] + std::string(" does not end in .html"));
    return files[0];
}

int run(std::span<char *> arguments)
{
    Source source;
    source.pace = 1;
    std::string still;
    OptionTable options = {{"What is shown:", 0, "still", "FILE",
                            "a JPEG of the video behind it, as va_video keeps it up to date",
                            [&](const char *text) { still = text; }}};
    for (Option &option : source_options(source))
        options.push_back(std::move(option));
    std::span<char *> files;
    if (!parse_command_line(arguments, std::move(options), {introduction, EXIT_STATUSES}, files))
        return RECORDS_CAME;
    check(source);
    if (!still.empty() && !source.capture.empty())
        throw WrongUse("--still is of what is seen now, not of a file of records");
    std::vector<std::unique_ptr<RecordSink>> printers;
    printers.push_back(std::make_unique<PicturePrinter>(page_of(files), source, still));
    return print_records(source, std::move(printers));
}

} // namespace

} // namespace va::picture

int main(int argc, char **argv)
{
    return va::run_program([&] {
        return va::picture::run({argv, static_cast<std::size_t>(argc)});
    });
}
