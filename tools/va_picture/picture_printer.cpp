#include "tools/va_picture/picture_printer.h"

#include "conf/conf_sensor.h"
#include "tools/common/event_text.h"
#include "tools/common/text.h"
#include "tools/va_picture/drawing.h"
#include "tools/va_picture/page.h"
#include "tools/va_picture/replace_file.h"

#include <algorithm>
#include <cinttypes>
#include <stdexcept>
#include <utility>

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds shortest_pause{50}; // between two pictures
constexpr seconds longest_pause{1};
constexpr seconds settings_pause{2};
constexpr seconds shown_for{1};

ConfSize frame_size()
{
    SensorConfig sensor;
    if (conf_getSensorConfig(&sensor) != 0)
        throw std::runtime_error("the settings name no known sensor (on a PC they are in the file "
                                 "that the environment variable NVRAM_FILE names)");
    return {sensor.width, sensor.height};
}

bool is_filter(const Shape &shape)
{
    return shape.used && (shape.kind == Shape::Kind::Line || shape.kind == Shape::Kind::Area);
}

// What the bits of the alarm masks stand for.
std::vector<AlarmRule> rules_of(const std::vector<Shape> &shapes)
{
    std::vector<AlarmRule> rules;
    for (const Shape &shape : shapes) {
        if (is_filter(shape))
            rules.push_back({shape.kind == Shape::Kind::Line ? AlarmRule::Source::Line
                                                             : AlarmRule::Source::Area,
                             shape.event, shape.bit, shape.number});
    }
    return rules;
}

Picture::State state_by(ExitStatus verdict)
{
    const bool may_show = verdict == IS_WELL || verdict == NO_STATUS;
    return may_show ? Picture::State::Live : Picture::State::Unwell;
}

} // namespace

PicturePrinter::PicturePrinter(std::string path, From from, const std::string &still)
    : path_(std::move(path)),
      frame_(frame_size()),
      state_(from == From::Capture ? Picture::State::Capture : Picture::State::Waiting),
      events_([this](const Event &event) { take_event(event); })
{
    if (!still.empty())
        backdrop_.emplace(still);
    read_settings({});
    write_page(path_);
    write({std::chrono::system_clock::now(), {}});
}

void PicturePrinter::print(const Record &record)
{
    last_ = {record.time, record.at};
    events_.take(record);
    if (record.kind.name == "od") {
        objects_ = {objects_in(record.payload), record.at, picture_number(record.payload)};
        if (backdrop_)
            backdrop_->take(objects_);
        trails_.take(objects_.sightings, record.at);
    } else if (record.kind.name == "fd") {
        faces_ = {faces_in(record.payload), record.at};
    } else if (record.kind.name == "vmf") {
        take_alarms(record);
    } else if (TAMPER_RECORDS_ARE_ALARMS) {
        tampered_ = record.at;
    }
    ++records_[index_of(record.kind)];
    last_record_ = record.at;
    changed_ = true;
}

void PicturePrinter::connection(const Connection &connection)
{
    last_ = connection.moment;
    events_.set_connected(connection.kind, connection.connected, connection.moment.at);
    connected_[index_of(connection.kind)] = connection.connected;
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
    if (now.at - shapes_read_ >= settings_pause)
        read_settings(now.at);
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
    if (state_ != Picture::State::Capture)
        state_ = Picture::State::Ended;
    write(now);
}

void PicturePrinter::read_settings(Elapsed now)
{
    shapes_ = read_overlay();
    shapes_read_ = now;
    events_.set_rules(rules_of(shapes_));
}

void PicturePrinter::take_alarms(const Record &record)
{
    const Words masks(record.payload);
    for (std::size_t event = 0; event < std::min(masks.size(), VMF_EVENT_CODES); ++event) {
        for (std::size_t bit = 0; bit < mask_bits; ++bit) {
            if (masks[event] >> bit & 1)
                alarms_[event][bit].at = record.at;
        }
    }
}

void PicturePrinter::take_event(const Event &event)
{
    if (event.kind == Event::Kind::LineCrossed)
        ++alarms_[static_cast<std::size_t>(event.rule.event)]
                 [static_cast<std::size_t>(event.rule.bit)]
                     .crossings;
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
    std::string text = formatted("%d x %d", frame_.width, frame_.height) + " \u00b7 records:";
    for (const StreamKind &kind : STREAM_KINDS)
        text += formatted(" %s %" PRIu64, kind.name.data(), records_[index_of(kind)]);
    const auto silence = std::chrono::duration_cast<seconds>(now - last_record_);
    if (silence > longest_pause)
        text += " \u00b7 none for " + std::to_string(silence.count()) + " s";
    return text;
}

std::vector<MarkedShape> PicturePrinter::shapes_at(Elapsed now) const
{
    std::vector<MarkedShape> all;
    for (const Shape &shape : shapes_) {
        MarkedShape marked{shape};
        if (is_filter(shape)) {
            const Alarm &alarm =
                alarms_[static_cast<std::size_t>(shape.event)][static_cast<std::size_t>(shape.bit)];
            marked.lit = now - alarm.at < shown_for;
            marked.crossings = alarm.crossings;
        }
        all.push_back(std::move(marked));
    }
    return all;
}

Picture PicturePrinter::picture_at(const Moment &now) const
{
    const auto may_come = [this](const char *stream) {
        const std::size_t index = index_of(*find_stream(stream));
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
        .frame = frame_,
        .still = backdrop_ ? backdrop_->still() : "",
        .shapes = shapes_at(now.at),
        .tamper = now.at - tampered_ < shown_for,
        .events = {event_lines_.begin(), event_lines_.end()},
        .has_objects = may_come("od"),
        .has_faces = may_come("fd"),
    };
    for (const Seen *seen : {&objects, &faces_}) {
        if (now.at - seen->at < shown_for)
            picture.sightings.insert(picture.sightings.end(), seen->sightings.begin(),
                                     seen->sightings.end());
    }
    picture.trails = trails_.trails(picture.sightings, objects.at, now.at);
    return picture;
}

void PicturePrinter::write(const Moment &now)
{
    const Picture picture = picture_at(now);
    const std::string drawing = svg_text(picture);
    replace_file(path_, drawing);
    write_drawing(path_, picture, drawing);
    changed_ = false;
    written_ = now.at;
}
