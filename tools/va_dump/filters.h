#pragma once

#include "client/events.h"

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Which objects, lines and areas are wanted: "kind=moving" (static, face), "id=7", "line=0" or
// "line=CrossLine.C0", "area=ObjectDetection.O0". Of several values of one name any will do, and of
// several names all that apply.
namespace va::dump
{

class Filters
{
public:
    // Throws WrongUse.
    void add(std::string_view text);
    bool empty() const { return kinds_.empty() && ids_.empty() && !have_rules(); }
    bool have_rules() const { return !lines_.empty() || !areas_.empty(); }
    bool have_names() const;

    // What the bits of the alarm masks mean. As long as that is not known a number is that of a bit
    // of the lines' mask, or of any mask of areas, and no name fits.
    void set_scene(const std::optional<Scene> &scene)
    {
        rules_ = scene ? scene->rules : std::vector<AlarmRule>();
    }

    // What is wanted of a record: of objects and faces the entries; an alarm record as it is, when
    // a line or area of it is. Nothing of a stream that no filter is about. Valid until the next
    // call.
    std::optional<std::span<const std::uint8_t>> select(const Record &record);

    // Whether an event is. What is reported of the daemon and of missed results always is.
    bool want(const Event &event) const;

private:
    using Values = std::set<std::string>; // numbers and names

    bool are_about_objects() const { return !kinds_.empty() || !ids_.empty(); }
    bool want_object(Detection::Kind kind, std::uint32_t number) const;
    bool want_rule(const AlarmRule &rule) const;
    bool want_alarm_of(const Event &event) const;
    std::optional<std::span<const std::uint8_t>> select_entries(const Record &record);

    std::set<Detection::Kind> kinds_;
    std::set<std::uint32_t> ids_;
    Values lines_;
    Values areas_;
    std::vector<AlarmRule> rules_;
    std::vector<std::uint8_t> entries_;
};

} // namespace va::dump
