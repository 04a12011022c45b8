#pragma once

#include "tools/common/output.h"

#include <string>

// Tells a daemon from which nothing comes, since nothing is to be seen, from one that hangs, runs
// without analytics or cannot write its status: it is asked when it has been silent for a while,
// and again every now and then until something comes. What changes is said on standard error and to
// the printers.
class Inquiry
{
public:
    // `output` outlives it.
    Inquiry(std::string directory, Output &output);

    // A record came; the end of a connection is none.
    void heard(const Moment &now);

    // Asks when it is time to, which takes two seconds at most, and that only of one that hangs or
    // cannot write its status. Call it several times a second. `connected`: the daemon is here.
    void pass(const Moment &now, bool connected);

private:
    void take(const Moment &now, const Verdict &verdict);

    std::string directory_;
    Output &output_;
    Elapsed due_;
    ExitStatus told_ = IS_WELL;
};
