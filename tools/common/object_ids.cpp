#include "tools/common/object_ids.h"

#include <algorithm>

namespace va
{

namespace
{

std::size_t index_of(Detection::Kind kind)
{
    return index_of(kind == Detection::Kind::Face ? Stream::Fd : Stream::Od);
}

} // namespace

void ObjectIds::appear(const Detection &object)
{
    StreamIds &ids = ids_[index_of(object.kind)];
    Known &known = ids.known[object.number];
    if (known.kinds++ == 0) {
        known.id = std::max<ObjectId>(object.number, ids.next);
        ids.next = known.id + 1;
        ++ids.here;
    }
    moving_ += object.kind == Detection::Kind::Moving;
}

void ObjectIds::leave(const Detection &object, Elapsed now)
{
    StreamIds &ids = ids_[index_of(object.kind)];
    Known &known = ids.known[object.number];
    known.left = now;
    ids.here -= --known.kinds == 0;
    moving_ -= object.kind == Detection::Kind::Moving;
}

std::optional<ObjectId> ObjectIds::of(Detection::Kind kind, std::uint32_t number) const
{
    const auto &known = ids_[index_of(kind)].known;
    const auto found = known.find(number);
    return found == known.end() ? std::nullopt : std::optional(found->second.id);
}

bool ObjectIds::is_here(Stream stream, std::uint32_t number, ObjectId id) const
{
    const auto &known = ids_[index_of(stream)].known;
    const auto found = known.find(number);
    return found != known.end() && found->second.id == id && found->second.kinds > 0;
}

void ObjectIds::forget_gone(Elapsed now)
{
    constexpr std::chrono::seconds kept(1);
    for (StreamIds &ids : ids_) {
        std::erase_if(ids.known, [&](const auto &each) {
            return each.second.kinds == 0 && now - each.second.left >= kept;
        });
    }
}

} // namespace va
