#include "tests/support/store_file.h"
#include "tests/support/va_fixture.h"
#include "va/options.h"
#include "va/va_dis.h"
#include "va/va_ta.h"

#include <cstring>

namespace
{

using VaTaTest = VaTest;
using VaDisTest = VaTest;

TEST_F(VaTaTest, SendsTheSettingsCutToTheLibrarysWidths)
{
    ne3_val_ta_ctrl garbage;
    std::memset(&garbage, 0xff, sizeof garbage);
    sim_set_ta_defaults(garbage);
    files.store(lines("CameraTampering.T0.", {"gcRegionSens=300", "dfAlarmTime=4370",
                                              "dfPixelRate=-1", "dfThreshold=65537"}));
    va_ta_getConf(&context); // whether or not the module is selected
    EXPECT_EQ(0, context.taEnable);
    EXPECT_EQ(0, run([&] { return va_ta_init(&context); }));
    EXPECT_EQ("init ta\n", output);
    ASSERT_TRUE(sim_ta_control());
    EXPECT_TRUE(same_bytes({0xffffffff, 1, 14, 44, 30, 10, 10, 0, 1, 255, 50, 5, 100},
                           *sim_ta_control())); // 4370 * 15 = 65536 + 14
    EXPECT_TRUE(sim_open_prm("ta")->prm0 == 1 && sim_open_prm("ta")->prm1 == 1);
}

TEST_F(VaDisTest, SendsAndPrintsTheSettings)
{
    sim_set_dis_defaults({-7, 1, 2, 3, 4, 65535, 6, 7, 8, {9, 10, 11}});
    files.store(lines("VideoAnalytics.DIS.",
                      {"Localmot_det=ENABLED", "Illumch_det=on", "Edge_det=true", "Motpow_det=yes",
                       "Mf_cutf=70000", "DisValidCnt=259", "Frdiff_det=no", "Me_disable=1"}));
    va_dis_getConf(&context);
    run([&] { return va_dis_init(&context); });
    EXPECT_EQ("status: -7\nlocalmot_det: 1\nillumch_det: 2\nedge_det: 3\nmotpow_det: 4\n"
              "mf_cutf: 65535\ndisValidCnt: 6\nfrdiff_det: 7\nme_disable: 8\n"
              "status: -7\nlocalmot_det: 1\nillumch_det: 1\nedge_det: 0\nmotpow_det: 1\n"
              "mf_cutf: 4464\ndisValidCnt: 3\nfrdiff_det: 0\nme_disable: 1\n",
              std::regex_replace(output, std::regex("==>va_dis_set_ctrl,[0-9]+:tPrm\\."), ""));
    ASSERT_TRUE(sim_dis_control());
    EXPECT_TRUE(same_bytes({-7, 1, 1, 0, 1, 4464, 3, 0, 1, {9, 10, 11}}, *sim_dis_control()));
}

} // namespace
