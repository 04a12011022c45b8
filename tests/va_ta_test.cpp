#include "tests/support/va_fixture.h"
#include "va/options.h"
#include "va/va_ta.h"

#include <cstring>

namespace
{

class VaTaTest : public VaTest
{
protected:
    VaTaTest()
    {
        ne3_val_init();
        ne3_val_open();
    }

    int init()
    {
        int result = 1;
        EXPECT_EQ("init ta\n", stdout_of([&] { result = va_ta_init(&context); }));
        return result;
    }

    VaContext context{};
};

void expect_control(const ne3_val_ta_ctrl &wanted)
{
    const auto control = sim_ta_control();
    ASSERT_TRUE(control);
    EXPECT_EQ(0, std::memcmp(&wanted, &*control, sizeof wanted));
}

constexpr ne3_val_ta_ctrl default_control{.library = 0xdeadbeef,
                                          .dfAlarmMethod = 1,
                                          .dfAlarmTime = 1500,
                                          .gcRegionSens = 50,
                                          .gcAreaRate = 30,
                                          .gcWaitTime = 10,
                                          .gcAlarmShape = 10,
                                          .reserved = 0,
                                          .dfThreshold = 40,
                                          .dfPixelRate = 5,
                                          .dfAreaRate = 50,
                                          .dfRepeatTh = 5,
                                          .dfAlarmShape = 100};

TEST_F(VaTaTest, SendsTheSettingsCutToTheLibrarysWidths)
{
    ne3_val_ta_ctrl garbage;
    std::memset(&garbage, 0xff, sizeof garbage);
    garbage.library = default_control.library;
    sim_set_ta_defaults(garbage);
    va_ta_getConf(&context);
    ASSERT_EQ(0, init());
    expect_control(default_control);
    EXPECT_EQ(1, sim_open_prm("ta")->prm0);
    EXPECT_EQ(1, sim_open_prm("ta")->prm1);

    files.store("CameraTampering.T0.gcRegionSens=300\nCameraTampering.T0.dfAlarmTime=4370\n"
                "CameraTampering.T0.dfPixelRate=-1\nCameraTampering.T0.dfThreshold=65537\n");
    ne3_val_ta_ctrl cut = default_control;
    cut.gcRegionSens = 44;
    cut.dfAlarmTime = 14; // 4370 * 15 = 65550
    cut.dfPixelRate = 255;
    cut.dfThreshold = 1;
    va_ta_updateConfig(&context);
    expect_control(cut);
}

TEST_F(VaTaTest, TouchesTheLibraryOnlyForChanges)
{
    va_ta_getConf(&context);
    ASSERT_EQ(0, init());
    const std::size_t calls = sim_calls().size();
    va_ta_updateConfig(&context);
    EXPECT_EQ(calls, sim_calls().size());

    // A refused change is not tried again until the settings change once more.
    files.store("CameraTampering.T0.gcWaitTime=11\n");
    sim_fail("ne3_val_ta_set_ctrl_ex", 1, 0x1234);
    EXPECT_EQ("VA: ne3_val_ta_set_ctrls fail. errno = 1234\n",
              log_of([&] { va_ta_updateConfig(&context); }));
    EXPECT_EQ("", log_of([&] { va_ta_updateConfig(&context); }));
    EXPECT_EQ(calls + 2, sim_calls().size());
    EXPECT_EQ(10, sim_ta_control()->gcWaitTime);

    files.store("CameraTampering.T0.gcWaitTime=12\n");
    va_ta_updateConfig(&context);
    EXPECT_EQ(12, sim_ta_control()->gcWaitTime);
}

TEST_F(VaTaTest, ReportsEachRefusedCall)
{
    const struct {
        const char *function;
        int result;
        const char *log;
        const char *last_call;
    } cases[] = {
        {"ne3_val_ta_open", -1, "VA: ta_open failed.\n", "ne3_val_ta_open"},
        {"ne3_val_ta_start", -1, "VA: start failed.\n", "ne3_val_ta_start"},
        {"ne3_val_ta_get_ctrl_ex", 0, "VA: ne3_val_ta_get_ctrl fail. errno = A0\n",
         "ne3_val_ta_get_ctrl_ex"},
        {"ne3_val_ta_set_ctrl_ex", 0, "VA: ne3_val_ta_set_ctrls fail. errno = A0\n",
         "ne3_val_ta_set_ctrl_ex"},
    };
    for (const auto &test : cases) {
        sim_reset();
        ne3_val_init();
        ne3_val_open();
        sim_fail(test.function, 1, 0xa0);
        EXPECT_EQ(test.log, log_of([&] { EXPECT_EQ(test.result, init()); }));
        EXPECT_EQ(test.last_call, sim_calls().back());
    }
}

TEST_F(VaTaTest, IsConfiguredWhetherOrNotItRuns)
{
    for (const int enabled : {0, 1}) {
        gm_bTaEna = enabled;
        context.taCtrl = {};
        va_ta_getConf(&context);
        EXPECT_EQ(enabled, context.taEnable);
        EXPECT_EQ(1500, context.taCtrl.dfAlarmTime);
    }
    EXPECT_EQ(0, va_ta_processData(&context, std::make_unique<ne3_val_ta_result>().get()));
}

// Shutdown of a module that was never opened: at least one cancel, then the end of the thread
// counts.
TEST_F(VaTaTest, CancelEndsWithTheThread)
{
    context.threadEnded = 1;
    EXPECT_EQ(0, va_ta_cancel(&context));
    EXPECT_EQ(1, calls_of("ne3_val_ta_cancel_data"));
}

} // namespace
