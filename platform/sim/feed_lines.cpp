#include "platform/sim/feed_lines.h"

#include "platform/sim/text.h"

#include <algorithm>
#include <utility>

namespace va::sim
{
namespace
{

using Unfinished = FeedLines::Unfinished;

// From the writer's frame to the scene's, within what entries may hold.
std::int32_t scaled(std::int32_t value, std::int32_t from, std::int32_t to, std::int32_t least)
{
    constexpr std::int64_t greatest = 65535;
    const std::int64_t exact = std::int64_t{value} * to / from;
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(exact, least, greatest));
}

struct Box {
    std::int32_t x, y, width, height;
};

// The box behind a number, in the scene's frame.
Box box_of(const Unfinished &unfinished, const Values &v)
{
    constexpr std::int32_t least_place = -65535;
    const Size frame = unfinished.frame;
    const Size sender = unfinished.sender;
    return {scaled(v[1], sender.width, frame.width, least_place),
            scaled(v[2], sender.height, frame.height, least_place),
            scaled(v[3], sender.width, frame.width, 1),
            scaled(v[4], sender.height, frame.height, 1)};
}

template <class Item>
void add(Unfinished &unfinished, std::vector<Item> &items, std::size_t limit, const Item &item)
{
    if (items.size() < limit)
        items.push_back(item);
    else
        unfinished.too_many = true;
}

template <SimObjectKind kind>
void add_object(Unfinished &unfinished, const Values &v)
{
    constexpr std::int32_t greatest_place = 65535;
    const auto [x, y, width, height] = box_of(unfinished, v);
    add(unfinished, unfinished.picture.seen.objects, FEED_OBJECTS,
        {v.bits(0), kind, x, y, width, height, std::min(x + width / 2, greatest_place),
         std::min(y + height / 2, greatest_place), 0, 0});
}

void add_face(Unfinished &unfinished, const Values &v)
{
    constexpr std::uint32_t score = 100;
    const auto [x, y, width, height] = box_of(unfinished, v);
    add(unfinished, unfinished.picture.faces, FEED_FACES,
        {v.bits(0), x, y, width, height, score, 0});
}

void finish(Unfinished &unfinished, const Values &v)
{
    for (SimObjectEntry &entry : unfinished.picture.seen.objects)
        entry.picture = v.numbers.empty() ? 0 : v.bits(0);
    unfinished.whole = true;
}

constexpr Statement<Unfinished> statements[] = {
    {"", [](Unfinished &, const Values &) {}},
    {"object W 3 P P S S", add_object<SimObjectKind::Moving>},
    {"object W moving P P S S", add_object<SimObjectKind::Moving>},
    {"object W dynamic P P S S", add_object<SimObjectKind::Moving>},
    {"object W 19 P P S S", add_object<SimObjectKind::Stationary>},
    {"object W static P P S S", add_object<SimObjectKind::Stationary>},
    {"face W P P S S", add_face},
    {"ta W W W W",
     [](Unfinished &unfinished, const Values &v) {
         add(unfinished, unfinished.picture.alarms, FEED_ALARMS,
             {v.bits(0), v.bits(1), v.bits(2), v.bits(3)});
     }},
    {"picture", finish},
    {"picture W", finish},
    {"frame S S",
     [](Unfinished &unfinished, const Values &v) {
         unfinished.sender = {v[0], v[1]};
     }},
    {"jump", [](Unfinished &unfinished, const Values &) { unfinished.picture.seen.jump = true; }},
};

} // namespace

FeedLines::FeedLines(std::string name, Size frame)
    : name_(std::move(name)), unfinished_{frame, frame}
{
}

std::vector<FeedPicture> FeedLines::take(std::string_view bytes)
{
    for (const char byte : bytes) {
        if (byte == '\n')
            take_line();
        else if (line_.size() <= FEED_LINE) // one more marks it as too long
            line_ += byte;
    }
    return std::exchange(pictures_, {});
}

void FeedLines::end()
{
    unfinished_ = {unfinished_.frame, unfinished_.frame};
    line_.clear();
    reported_.fill(false);
}

void FeedLines::take_line()
{
    const std::string line = std::exchange(line_, {});
    unfinished_.too_many = unfinished_.whole = false;
    if (line.size() > FEED_LINE)
        report(too_long, line);
    else if (!apply_line(line, statements, unfinished_))
        report(not_understood, line);
    else if (unfinished_.too_many)
        report(too_many, line);
    else if (unfinished_.whole)
        pictures_.push_back(std::exchange(unfinished_.picture, {}));
}

void FeedLines::report(Problem problem, const std::string &line)
{
    constexpr const char *words[] = {"not understood", "too long", "too many"};
    if (!std::exchange(reported_[problem], true))
        say("feed %s: ignored (reported once): %s: %s", name_.c_str(), words[problem],
            line.c_str());
}

} // namespace va::sim
