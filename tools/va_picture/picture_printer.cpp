#include "tools/va_picture/picture_printer.h"

#include "tools/common/printing.h"
#include "tools/va_picture/drawing.h"
#include "tools/va_picture/page.h"
#include "util/text.h"

#include <algorithm>
#include <cinttypes>
#include <utility>

namespace va::picture
{

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds shortest_pause{50}; // between two pictures
constexpr seconds longest_pause{1};
constexpr seconds shown_for{1};

Picture::State state_by(ExitStatus verdict)
{
    const bool may_show = verdict == IS_WELL || verdict == NO_STATUS;
    return may_show ? Picture::State::Live : Picture::State::Unwell;
}

} // namespace

PicturePrinter::PicturePrinter(std::string path, From from, const std::string &still)
    : path_(std::move(path)),
      state_(from == From::Capture ? Picture::State::Capture : Picture::State::Waiting),
      events_([this](const Event &event) { take_event(event); })
{
    if (from == From::Daemon)
        events_.expect_scene();
    if (!still.empty())
        backdrop_.emplace(still);
    write_page(path_);
    write({std::chrono::system_clock::now(), {}});
}

void PicturePrinter::record(const Record &record)
{
    last_ = {record.time, record.at};
    events_.take(record);
    switch (record.stream) {
    case Stream::Od:
        objects_ = {detections_in(record), record.at, picture_number(record)};
        if (backdrop_)
            backdrop_->take(objects_);
        trails_.take(objects_.detections, record.at);
        break;
    case Stream::Fd:
        faces_ = {detections_in(record), record.at};
        break;
    case Stream::Vmf:
        for (const Alarm alarm : alarms_in(record))
            bits_[index_of_bit(alarm.event, alarm.bit)].alarm = record.at;
        break;
    case Stream::Ta:
        if (is_tamper_alarm(record))
            tampered_ = record.at;
        break;
    }
    ++records_[index_of(record.stream)];
    last_record_ = record.at;
    changed_ = true;
}

void PicturePrinter::status(const Moment &now, const DaemonStatus &status)
{
    last_ = now;
    const auto scene = scene_of(status);
    if (!scene)
        return;
    events_.set_scene(scene);
    changed_ = true;
    scene_ = *scene;
}

void PicturePrinter::connection(const Connection &connection)
{
    last_ = connection.moment;
    events_.set_connected(connection.stream, connection.connected, connection.moment.at);
    connected_[index_of(connection.stream)] = connection.connected;
    if (is_connected()) {
        state_ = state_by(verdict_);
    } else if (state_ != Picture::State::Waiting) {
        verdict_ = IS_WELL;
        state_ = Picture::State::Gone;
        gone_since_ = connection.moment.time;
    }
    changed_ = true;
}

void PicturePrinter::verdict(const Moment &now, const Verdict &verdict)
{
    last_ = now;
    events_.set_verdict(verdict, now.at);
    verdict_ = verdict.status;
    state_ = state_by(verdict_);
    changed_ = true;
}

void PicturePrinter::tick(const Moment &now)
{
    last_ = now;
    events_.pass(now.at);
    if (backdrop_)
        changed_ |= backdrop_->look(now.at);
    if (now.at >= write_due())
        write(now);
}

Elapsed PicturePrinter::due() const
{
    return backdrop_ ? std::min(write_due(), backdrop_->due()) : write_due();
}

Elapsed PicturePrinter::write_due() const
{
    return written_ + (changed_ ? Elapsed(shortest_pause) : Elapsed(longest_pause));
}

void PicturePrinter::finish(const Moment &now)
{
    last_ = now;
    events_.finish(now.at);
    if (state_ != Picture::State::Capture)
        state_ = Picture::State::Ended;
    write(now);
}

void PicturePrinter::take_event(const Event &event)
{
    if (event.kind == Event::Kind::LineCrossed)
        bits_[index_of_bit(event.rule.event, event.rule.bit)].crossings = event.count;
    event_lines_.push_front(clock_text(last_.time) + "  " + event_text(event));
    if (event_lines_.size() > PICTURE_EVENTS)
        event_lines_.pop_back();
    changed_ = true;
}

bool PicturePrinter::is_connected() const
{
    return std::ranges::count(connected_, true) > 0;
}

std::string PicturePrinter::state_text(Picture::State state, const Moment &now) const
{
    switch (state) {
    case Picture::State::Live:
        return verdict_ == NO_STATUS ? "live, no status" : "live";
    case Picture::State::Unwell:
        return verdict_ == NO_ANALYTICS ? "runs without analytics" : "daemon hangs";
    case Picture::State::Waiting:
        return "waiting for the daemon";
    case Picture::State::Gone:
        return "daemon gone since " + time_of_day(gone_since_);
    case Picture::State::Ended:
        return "not drawn since " + time_of_day(now.time);
    case Picture::State::Capture:
        return "from a capture";
    }
    return "";
}

std::string PicturePrinter::caption_at(Elapsed now) const
{
    std::string text =
        formatted("%d x %d", scene_.frame.width, scene_.frame.height) + " \u00b7 records:";
    for (const Stream stream : STREAMS)
        text += formatted(" %s %" PRIu64, name_of(stream).data(), records_[index_of(stream)]);
    const auto silence = std::chrono::duration_cast<seconds>(now - last_record_);
    if (silence > longest_pause)
        text += " \u00b7 none for " + std::to_string(silence.count()) + " s";
    return text;
}

std::vector<MarkedShape> PicturePrinter::shapes_at(Elapsed now) const
{
    std::vector<MarkedShape> all;
    for (const Shape &shape : scene_.shapes) {
        MarkedShape marked{shape};
        if (const AlarmRule *const rule = scene_.rule_of(shape)) {
            const Bit &bit = bits_[index_of_bit(rule->event, rule->bit)];
            marked.lit = now - bit.alarm < shown_for;
            marked.crossings = bit.crossings;
        }
        all.push_back(std::move(marked));
    }
    return all;
}

Picture PicturePrinter::picture_at(const Moment &now) const
{
    const auto may_come = [this](Stream stream) {
        const std::size_t index = index_of(stream);
        return connected_[index] || records_[index] > 0;
    };
    const Seen &objects = backdrop_ ? backdrop_->objects(objects_) : objects_;
    Picture picture{
        .state = state_,
        .state_text = state_text(state_, now),
        .caption = caption_at(now.at),
        .clock = time_of_day(now.time),
        .drawn = std::chrono::floor<milliseconds>(std::chrono::system_clock::now())
                     .time_since_epoch()
                     .count(),
        .frame = scene_.frame,
        .still = backdrop_ ? backdrop_->still() : "",
        .shapes = shapes_at(now.at),
        .tamper = now.at - tampered_ < shown_for,
        .events = {event_lines_.begin(), event_lines_.end()},
        .has_objects = may_come(Stream::Od),
        .has_faces = may_come(Stream::Fd),
    };
    for (const Seen *seen : {&objects, &faces_}) {
        if (now.at - seen->at < shown_for)
            picture.detections.insert(picture.detections.end(), seen->detections.begin(),
                                      seen->detections.end());
    }
    picture.trails = trails_.trails(picture.detections, objects.at, now.at);
    return picture;
}

void PicturePrinter::write(const Moment &now)
{
    const Picture picture = picture_at(now);
    const std::string drawing = svg_text(picture);
    replace(path_, drawing);
    write_drawing(path_, picture, drawing);
    changed_ = false;
    written_ = now.at;
}

} // namespace va::picture
