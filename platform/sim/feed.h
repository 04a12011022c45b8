#pragma once

#include "platform/sim/observations.h"

#include <memory>
#include <string>

namespace va::sim
{

// Observations that another program writes to `path`, as described in docs/scene.md. A thread of
// their own reads them while the source is started; it takes no lock but the source's. Places are
// in `frame`.
//
// `wake` is called by that thread when there is something to take. While pictures with observations
// of a kind come one after another, the next of these is expected soon after the last.
std::unique_ptr<Source> make_feed(std::string path, Size frame, void (*wake)());

} // namespace va::sim
