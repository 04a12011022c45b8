#pragma once

#include "client/events.h"
#include "records/records.h"
#include "tools/common/sink.h"
#include "tools/va_picture/backdrop.h"
#include "tools/va_picture/picture.h"

#include <array>
#include <deque>
#include <optional>
#include <string>

namespace va::picture
{

// Keeps a drawing up to date: as soon as there is something new to see, at most twenty times a
// second, and at least once a second. It is in the file PATH, which is a picture for everybody, and
// in PATH.js, for the page PATH.html, which is written at the beginning: a browser that shows the
// page follows without a reload and tells when nobody draws any more.
//
// What it marks is what the daemon has in force, which is asked every two seconds. Objects and
// faces stay until the next result, a second at the longest: a result without any sends no record.
// An alarm is lit for a second.
class PicturePrinter : public RecordSink
{
public:
    enum class From { Daemon, Capture };

    // `still` is the file of a Backdrop, empty: none. Throws std::system_error.
    PicturePrinter(std::string path, From from, const std::string &still = "");
    void record(const Record &record) override;
    void connection(const Connection &connection) override;
    bool wants_status() const override { return true; }
    void status(const Moment &now, const DaemonStatus &status) override;
    void verdict(const Moment &now, const Verdict &verdict) override;
    void tick(const Moment &now) override;
    Elapsed due() const override;
    void finish(const Moment &now) override;

private:
    static constexpr std::size_t mask_bits = 32;
    using TimePoint = std::chrono::system_clock::time_point;

    // A bit of the alarm masks.
    struct Bit {
        Elapsed alarm = Seen::never; // the last one
        std::uint64_t crossings = 0;
    };

    void take_event(const Event &event);
    static std::size_t index_of_bit(int event, int bit)
    {
        return static_cast<std::size_t>(event) * mask_bits + static_cast<std::size_t>(bit);
    }
    bool is_connected() const;
    std::string state_text(Picture::State state, const Moment &now) const;
    std::string caption_at(Elapsed now) const;
    std::vector<MarkedShape> shapes_at(Elapsed now) const;
    Picture picture_at(const Moment &now) const;
    Elapsed write_due() const;
    void write(const Moment &now);

    std::string path_;
    Scene scene_{{1920, 1080}, {}, {}}; // the usual frame, until the daemon says its own
    ExitStatus verdict_ = IS_WELL;      // of the daemon that is connected
    Picture::State state_;
    TimePoint gone_since_{};
    EventMaker events_;
    Moment last_{}; // known, by which the events' clock is told
    std::deque<std::string> event_lines_;
    std::optional<Backdrop> backdrop_;
    Seen objects_; // the newest
    Seen faces_;
    Trails trails_;
    std::array<Bit, VMF_EVENT_CODES * mask_bits> bits_{};
    Elapsed tampered_ = Seen::never;
    std::array<std::uint64_t, STREAM_COUNT> records_{};
    std::array<bool, STREAM_COUNT> connected_{};
    Elapsed last_record_{};
    bool changed_ = false; // since it was written
    Elapsed written_ = Seen::never;
};

} // namespace va::picture
