#pragma once

#include "event/loop.h"
#include "util/owner.h"

// Private to this tree, like util/owner.h.
namespace va
{

// An event that is removed with what owns it; else it is used like the pointer.
using EventOwner = Owner<event, remove_event>;

} // namespace va
