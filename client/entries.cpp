#include "client/entries.h"

#include "records/records.h"

#include <algorithm>
#include <bit>

namespace va
{

const char *kind_word(Detection::Kind kind)
{
    switch (kind) {
    case Detection::Kind::Moving:
        return "moving";
    case Detection::Kind::Static:
        return "static";
    case Detection::Kind::Face:
        return "face";
    }
    return "";
}

std::vector<Alarm> alarms_in(const Record &record)
{
    std::vector<Alarm> alarms;
    if (record.stream != Stream::Vmf)
        return alarms;
    const Words masks(record.payload);
    for (std::size_t event = 0; event < std::min(masks.size(), VMF_EVENT_CODES); ++event) {
        for (std::uint32_t mask = masks[event]; mask; mask &= mask - 1)
            alarms.push_back({static_cast<int>(event), std::countr_zero(mask)});
    }
    return alarms;
}

} // namespace va
