#pragma once

#include "platform/sim/sim.h"
#include "tests/support/capture.h"
#include "tests/support/daemon.h"
#include "va/va.h"

#include <algorithm>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

inline ne3_val_od_polygon box(int left, int top, int right, int bottom)
{
    return {4, {{left, top}, {left, bottom}, {right, bottom}, {right, top}}};
}

// The daemon's parts in this process: a working directory as the daemon's, a stand-in with an open
// library, a full-HD sensor, the log on standard error.
class VaTest : public testing::Test
{
protected:
    VaTest()
    {
        if (chdir(files.path().c_str()) != 0)
            std::abort();
        use_sensor(1920, 1080);
        open_library();
    }
    ~VaTest() override
    {
        if (chdir("/") != 0)
            std::abort();
    }

    // A fresh stand-in.
    static void open_library()
    {
        sim_reset();
        ne3_val_init();
        ne3_val_open();
    }

    void use_sensor(int width, int height)
    {
        context.sensorConf.width = width;
        context.sensorConf.height = height;
        context.sensorConf.fps = 30;
        context.wideAspect = conf_isWideAspect(width, height);
    }

    // What `action` returns; what it prints and logs is in `output` and `log`, the stand-in's own
    // lines left out.
    template <class Action>
    int run(Action action)
    {
        int result = 0;
        output = stdout_of([&] { log = stderr_of([&] { result = action(); }); });
        log = std::regex_replace(log, std::regex("(^|\n)(sim: [^\n]*\n)+"), "$1");
        return result;
    }

    static auto calls_of(const std::string &function)
    {
        const std::vector<std::string> calls = sim_calls();
        return std::count(calls.begin(), calls.end(), function);
    }

    DaemonFiles files;
    VaContext context{};
    std::string output;
    std::string log;
};
