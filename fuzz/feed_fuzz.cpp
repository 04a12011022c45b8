#include "platform/sim/feed_lines.h"

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>

// Whatever a feed's writer sends: no picture goes beyond its bounds, and none depends on the pieces
// in which the bytes come.

using namespace va::sim;

namespace
{

constexpr Size frame{1920, 1080};

using Pictures = std::vector<FeedPicture>;

bool in_range(std::int32_t value, std::int32_t least)
{
    constexpr std::int32_t greatest = 65535;
    return least <= value && value <= greatest;
}

void check(const FeedPicture &picture)
{
    constexpr std::int32_t least_place = -65535;
    assert(picture.seen.objects.size() <= FEED_OBJECTS && picture.faces.size() <= FEED_FACES &&
           picture.alarms.size() <= FEED_ALARMS);
    for (const SimObjectEntry &object : picture.seen.objects) {
        assert(in_range(object.width, 1) && in_range(object.height, 1));
        assert(in_range(object.x, least_place) && in_range(object.centre_x, least_place));
        assert(in_range(object.y, least_place) && in_range(object.centre_y, least_place));
    }
}

template <class Item>
bool same(const std::vector<Item> &a, const std::vector<Item> &b)
{
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(Item)) == 0);
}

bool same(const FeedPicture &a, const FeedPicture &b)
{
    return same(a.seen.objects, b.seen.objects) && a.seen.jump == b.seen.jump &&
           same(a.faces, b.faces) && same(a.alarms, b.alarms);
}

Pictures byte_by_byte(std::string_view bytes)
{
    FeedLines feed("bytes", frame);
    Pictures all;
    for (; !bytes.empty(); bytes.remove_prefix(1)) {
        Pictures some = feed.take(bytes.substr(0, 1));
        std::ranges::move(some, std::back_inserter(all));
    }
    return all;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    const Pictures whole = FeedLines("whole", frame).take(bytes);
    const Pictures pieces = byte_by_byte(bytes);
    assert(whole.size() == pieces.size());
    for (std::size_t i = 0; i < whole.size(); ++i) {
        check(whole[i]);
        assert(same(whole[i], pieces[i]));
    }
    return 0;
}
