#include "tests/support/va_fixture.h"
#include "tests/support/wait.h"
#include "va/process.h"
#include "va/va_proc.h"

#include <thread>

namespace
{

using Calls = std::vector<std::string>;

// The calls whose names end in `suffix`, in order.
Calls calls_ending(const std::string &suffix)
{
    Calls calls;
    for (const std::string &call : sim_calls()) {
        if (call.ends_with(suffix))
            calls.push_back(call);
    }
    return calls;
}

class VaProcTest : public VaTest
{
protected:
    VaProcTest()
    {
        context.sensorConf.width = 1920;
        context.sensorConf.height = 1080;
        context.sensorConf.fps = 30;
        context.fdCtrl.sensitivity = -1;
        context.odEnable = context.fdEnable = context.taEnable = context.disEnable = 1;
        ne3_val_init();
        ne3_val_open();
    }

    static void push_results()
    {
        sim_push_fd({}, 0);
        sim_push_ta({});
        sim_push_od({}, 0, 0);
    }

    VaContext context{};
};

TEST_F(VaProcTest, PollsInOrderAndReconfiguresTwoModulesOnly)
{
    push_results();
    std::thread thread(va_proc, &context);
    EXPECT_TRUE(wait_until([] { return calls_ending("_get_data").size() == 3; }));

    // Everything differs from what the context holds, which nothing has read from the store.
    files.store("FaceDetection.Sensitivity=10\nVideoAnalytics.DIS.Mf_cutf=7\n");
    va_msg_reconfig(&context, "reconfig", 8);
    EXPECT_TRUE(wait_until([this] { return context.reconfig == 0; }));
    push_results();
    EXPECT_TRUE(wait_until([] { return calls_ending("_get_data").size() == 6; }));
    terminate = 1;
    EXPECT_TRUE(wait_until([this] { return context.threadEnded == 1; }));
    terminate = 0;
    thread.join();

    const Calls pass{"ne3_val_od_get_data", "ne3_val_ta_get_data", "ne3_val_fd_get_data"};
    const Calls polls = calls_ending("_get_data");
    EXPECT_EQ(pass, Calls(polls.begin(), polls.begin() + 3));
    EXPECT_EQ(
        (Calls{"ne3_val_od_start", "ne3_val_fd_start", "ne3_val_ta_start", "ne3_val_dis_start"}),
        calls_ending("_start"));
    EXPECT_EQ(2, calls_of("ne3_val_od_set_ctrl"));
    EXPECT_EQ(2, calls_of("ne3_val_ta_set_ctrl_ex"));
    EXPECT_EQ(1, calls_of("ne3_val_fd_set_ctrl"));
    EXPECT_EQ(1, calls_of("ne3_val_dis_set_ctrl"));
}

} // namespace
