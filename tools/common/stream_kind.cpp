#include "tools/common/stream_kind.h"

#include "records/records.h"
#include "tools/common/entries.h"

#include <algorithm>
#include <iterator>

namespace
{

constexpr std::size_t word_size = sizeof(std::uint32_t);

// The event codes whose alarm masks they are.
constexpr Field vmf_fields[] = {{"event0"}, {"event1"}, {"event2"}, {"event3"}};
static_assert(std::size(vmf_fields) == VMF_EVENT_CODES);

} // namespace

const StreamKind STREAM_KINDS[STREAM_COUNT] = {
    {"od", OD_ENTRY_SIZE / word_size, OBJECT_FIELDS}, // the objects of a result
    {"vmf", VMF_EVENT_CODES, vmf_fields},
    {"fd", FD_ENTRY_SIZE / word_size, FACE_FIELDS}, // the faces of a result
    {"ta", sizeof(TaRecord) / word_size, {}},
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
