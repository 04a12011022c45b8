#pragma once

#include "records/records.h"
#include "tools/common/printer.h"
#include "tools/va_picture/picture.h"

#include <array>
#include <string>

// Keeps a picture up to date: after records at most four times a second, else once a second.
//
// What lies in the store is read every two seconds, the sensor once. Objects and faces stay until
// the next result, a second at the longest: a result without any sends no record. An alarm is lit
// for a second.
class PicturePrinter : public Printer
{
public:
    explicit PicturePrinter(std::string path); // throws std::system_error
    void print(const Record &record) override;
    void tick(Elapsed now) override;
    void finish(Elapsed now) override;

private:
    static constexpr std::size_t mask_bits = 32;
    static constexpr Elapsed never{-3'600'000'000};

    struct Seen {
        std::vector<Sighting> sightings;
        Elapsed at = never;
    };

    void take_alarms(const Record &record);
    std::string caption_at(Elapsed now) const;
    Picture picture_at(Elapsed now) const;
    void write(Elapsed now);

    std::string path_;
    ConfSize frame_;
    std::vector<Shape> shapes_;
    Elapsed shapes_read_{};
    Seen objects_;
    Seen faces_;
    std::array<std::array<Elapsed, mask_bits>, VMF_EVENT_CODES> alarmed_;
    Elapsed tampered_ = never;
    std::array<std::uint64_t, STREAM_COUNT> records_{};
    Elapsed last_record_{};
    bool changed_ = false; // since it was written
    Elapsed written_{};
};
