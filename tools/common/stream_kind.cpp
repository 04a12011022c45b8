#include "tools/common/stream_kind.h"

#include "tools/common/entries.h"

#include <algorithm>
#include <iterator>

namespace
{

// The event codes whose alarm masks they are.
constexpr Field vmf_fields[] = {{"event0"}, {"event1"}, {"event2"}, {"event3"}};

} // namespace

const StreamKind STREAM_KINDS[STREAM_COUNT] = {
    {"od", OBJECT_WORDS, OBJECT_FIELDS}, // the objects of a result
    {"vmf", std::size(vmf_fields), vmf_fields},
    {"fd", FACE_WORDS, FACE_FIELDS}, // the faces of a result
    {"ta", 4, {}},                   // one tamper result
};

const StreamKind *find_stream(std::string_view name)
{
    const auto *found = std::ranges::find(STREAM_KINDS, name, &StreamKind::name);
    return found == std::end(STREAM_KINDS) ? nullptr : found;
}

std::size_t index_of(const StreamKind &kind)
{
    return static_cast<std::size_t>(&kind - STREAM_KINDS);
}
