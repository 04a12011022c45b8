#pragma once

#include "tools/common/events.h"
#include "tools/common/record.h"

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string_view>
#include <vector>

// Which objects and lines are wanted: "kind=moving" (static, face), "id=7", "line=0". Of several
// values of one name any will do, and of several names all that apply.
class Filters
{
public:
    // Throws WrongUse.
    void add(std::string_view text);
    bool empty() const { return kinds_.empty() && ids_.empty() && lines_.empty(); }

    // What is wanted of a record: of objects and faces the entries; an alarm record as it is, when
    // a line of it is. Nothing of a stream that no filter is about. Valid until the next call.
    std::optional<std::span<const std::uint8_t>> select(const Record &record);

    // Whether an event is. What tells of the daemon and of records that were missed always is.
    bool want(const Event &event) const;

private:
    bool are_about_objects() const { return !kinds_.empty() || !ids_.empty(); }
    bool want(const Sighting &seen) const;
    bool want_line(std::uint32_t number) const { return lines_.contains(number); }

    std::set<Sighting::Kind> kinds_;
    std::set<std::uint32_t> ids_;
    std::set<std::uint32_t> lines_; // without settings: bits of the lines' mask
    std::vector<std::uint8_t> entries_;
};
