#include "client/streams.h"

#include "records/records.h"

#include <algorithm>
#include <iterator>

namespace va
{

namespace
{

constexpr std::size_t word_size = sizeof(std::uint32_t);

// The event codes whose alarm masks they are.
constexpr Field vmf_fields[] = {{"event0"}, {"event1"}, {"event2"}, {"event3"}};
static_assert(std::size(vmf_fields) == VMF_EVENT_CODES);

} // namespace

StreamInfo info_of(Stream stream)
{
    switch (stream) {
    case Stream::Od: // the objects of a result
        return {"od", "od", OD_ENTRY_SIZE / word_size, OBJECT_FIELDS};
    case Stream::Vmf:
        return {"vmf", "od", VMF_EVENT_CODES, vmf_fields};
    case Stream::Fd: // the faces of a result
        return {"fd", "fd", FD_ENTRY_SIZE / word_size, FACE_FIELDS};
    case Stream::Ta:
        return {"ta", "ta", sizeof(TaRecord) / word_size, {}};
    }
    return {};
}

std::string_view name_of(Stream stream)
{
    return info_of(stream).name;
}

std::optional<Stream> find_stream(std::string_view name)
{
    const auto *found = std::ranges::find(STREAMS, name, name_of);
    return found == STREAMS.end() ? std::nullopt : std::optional(*found);
}

} // namespace va
