#pragma once

#include "client/entries.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

namespace va
{

// What messages call an object or a face. The chip uses its numbers again, messages do not: an id
// is the number when that is above all ids of the stream so far, else the next one above them.
using ObjectId = std::uint64_t;

// The ids of the objects and faces that are here. One that is of several kinds meanwhile, as when
// it stops moving, is one object.
class ObjectIds
{
public:
    void appear(const Detection &object);
    void leave(const Detection &object, Elapsed now);

    // Of one that is here or was until a moment ago: an alarm may still name it.
    std::optional<ObjectId> of(Detection::Kind kind, std::uint32_t number) const;

    bool is_here(Stream stream, std::uint32_t number, ObjectId id) const;
    bool any(Stream stream) const { return ids_[index_of(stream)].here > 0; }
    bool any_moving() const { return moving_ > 0; }

    // Call it now and then, else those that left are kept for ever.
    void forget_gone(Elapsed now);

private:
    struct Known {
        ObjectId id = 0;
        int kinds = 0; // as which it is here; 0: it left
        Elapsed left{};
    };
    struct StreamIds {
        std::map<std::uint32_t, Known> known; // by the chip's numbers
        ObjectId next = 0;
        std::size_t here = 0;
    };

    std::array<StreamIds, STREAM_COUNT> ids_;
    std::size_t moving_ = 0;
};

} // namespace va
