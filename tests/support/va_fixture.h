#pragma once

#include "platform/sim/sim.h"
#include "tests/support/capture.h"
#include "tests/support/daemon.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

// The daemon's parts in this process: a working directory as the daemon's, a fresh stand-in, the
// log on standard error.
class VaTest : public testing::Test
{
protected:
    VaTest()
    {
        if (chdir(files.path().c_str()) != 0)
            std::abort();
        setenv("NVRAM_FILE", "store", 1);
        openlog("VA", LOG_PERROR, LOG_USER);
        sim_reset();
    }
    ~VaTest() override
    {
        if (chdir("/") != 0)
            std::abort();
    }

    // What `action` logs, a line each as "VA: text"; the stand-in's own lines left out.
    template <class Action>
    static std::string log_of(Action action)
    {
        const std::string all = stderr_of(action);
        std::string log;
        for (std::size_t at = 0; at < all.size();) {
            const std::size_t end = std::min(all.find('\n', at), all.size() - 1) + 1;
            if (all.compare(at, 5, "sim: ") != 0)
                log += all.substr(at, end - at);
            at = end;
        }
        return log;
    }

    static int calls_of(const std::string &function)
    {
        const std::vector<std::string> calls = sim_calls();
        return static_cast<int>(std::count(calls.begin(), calls.end(), function));
    }

    DaemonFiles files;
};
