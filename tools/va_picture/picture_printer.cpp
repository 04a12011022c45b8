#include "tools/va_picture/picture_printer.h"

#include "conf/conf_sensor.h"
#include "tools/common/text.h"
#include "tools/va_picture/replace_file.h"

#include <algorithm>
#include <cinttypes>
#include <utility>

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds shortest_pause{250}; // between two pictures
constexpr seconds longest_pause{1};
constexpr seconds settings_pause{2};
constexpr seconds shown_for{1};

ConfSize frame_size()
{
    SensorConfig sensor;
    if (conf_getSensorConfig(&sensor) == 0)
        return {sensor.width, sensor.height};
    return {1920, 1080}; // as if it were the usual one; the reader has said that there is none
}

} // namespace

PicturePrinter::PicturePrinter(std::string path)
    : path_(std::move(path)), frame_(frame_size()), shapes_(read_overlay())
{
    for (auto &event : alarmed_)
        event.fill(never);
    write({});
}

void PicturePrinter::print(const Record &record)
{
    if (record.kind.name == "od")
        objects_ = {objects_in(record.payload), record.at};
    else if (record.kind.name == "fd")
        faces_ = {faces_in(record.payload), record.at};
    else if (record.kind.name == "vmf")
        take_alarms(record);
    else if (TAMPER_RECORDS_ARE_ALARMS)
        tampered_ = record.at;
    ++records_[index_of(record.kind)];
    last_record_ = record.at;
    changed_ = true;
}

void PicturePrinter::tick(Elapsed now)
{
    if (now - shapes_read_ >= settings_pause) {
        shapes_ = read_overlay();
        shapes_read_ = now;
    }
    if (now - written_ >= (changed_ ? Elapsed(shortest_pause) : Elapsed(longest_pause)))
        write(now);
}

void PicturePrinter::finish(Elapsed now)
{
    write(now);
}

void PicturePrinter::take_alarms(const Record &record)
{
    const Words masks(record.payload);
    for (std::size_t event = 0; event < std::min(masks.size(), VMF_EVENT_CODES); ++event) {
        for (std::size_t bit = 0; bit < mask_bits; ++bit) {
            if (masks[event] >> bit & 1)
                alarmed_[event][bit] = record.at;
        }
    }
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

Picture PicturePrinter::picture_at(Elapsed now) const
{
    const auto is_recent = [now](Elapsed at) { return now - at < shown_for; };
    Picture picture{.frame = frame_,
                    .shapes = shapes_,
                    .tamper = is_recent(tampered_),
                    .caption = caption_at(now),
                    .clock = clock_text(std::chrono::system_clock::now())};
    for (const Seen *seen : {&objects_, &faces_}) {
        if (is_recent(seen->at))
            picture.sightings.insert(picture.sightings.end(), seen->sightings.begin(),
                                     seen->sightings.end());
    }
    for (std::size_t event = 0; event < VMF_EVENT_CODES; ++event) {
        for (std::size_t bit = 0; bit < mask_bits; ++bit)
            picture.alarms.alarms[event] |= std::uint32_t{is_recent(alarmed_[event][bit])} << bit;
    }
    return picture;
}

void PicturePrinter::write(Elapsed now)
{
    replace_file(path_, svg_text(picture_at(now)));
    changed_ = false;
    written_ = now;
}
