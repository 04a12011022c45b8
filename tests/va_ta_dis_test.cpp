#include "tests/support/va_fixture.h"
#include "va/options.h"
#include "va/va_dis.h"
#include "va/va_ta.h"

#include <cstring>

namespace
{

using std::string;

struct VaTaTest : VaTest {
};
struct VaDisTest : VaTest {
};

constexpr ne3_val_ta_ctrl default_control{0xdeadbeef, 1,  1500, 50, 30, 10, 10,
                                          0,          40, 5,    50, 5,  100};

TEST_F(VaTaTest, SendsTheSettingsCutToTheLibrarysWidths)
{
    ne3_val_ta_ctrl cut = default_control;
    cut.gcRegionSens = 44;
    cut.dfAlarmTime = 14; // 4370 * 15 = 65550
    cut.dfPixelRate = 255;
    cut.dfThreshold = 1;
    const struct {
        string settings;
        ne3_val_ta_ctrl wanted;
    } cases[] = {
        {"", default_control},
        {"CameraTampering.T0.gcRegionSens=300\nCameraTampering.T0.dfAlarmTime=4370\n"
         "CameraTampering.T0.dfPixelRate=-1\nCameraTampering.T0.dfThreshold=65537\n",
         cut},
    };
    ne3_val_ta_ctrl garbage;
    std::memset(&garbage, 0xff, sizeof garbage);
    garbage.library = default_control.library;
    for (const auto &test : cases) {
        open_library();
        sim_set_ta_defaults(garbage);
        files.store(test.settings);
        va_ta_getConf(&context); // whether or not the module is selected
        EXPECT_EQ(0, context.taEnable);
        EXPECT_EQ(0, run([&] { return va_ta_init(&context); }));
        EXPECT_EQ("init ta\n", output);
        const auto sent = sim_ta_control();
        ASSERT_TRUE(sent);
        EXPECT_EQ(0, std::memcmp(&test.wanted, &*sent, sizeof *sent));
        EXPECT_TRUE(sim_open_prm("ta")->prm0 == 1 && sim_open_prm("ta")->prm1 == 1);
    }
}

string nine_lines(const std::vector<int> &values)
{
    const char *const labels[] = {"status",      "localmot_det", "illumch_det",
                                  "edge_det",    "motpow_det",   "mf_cutf",
                                  "disValidCnt", "frdiff_det",   "me_disable"};
    string lines;
    for (std::size_t i = 0; i < values.size(); ++i)
        lines += "==>va_dis_set_ctrl,N:tPrm." + string(labels[i]) + ": " +
                 std::to_string(values[i]) + "\n";
    return lines;
}

TEST_F(VaDisTest, SendsAndPrintsTheSettings)
{
    const ne3_val_dis_ctrl old{-7, 1, 2, 3, 4, 65535, 6, 7, 8, {9, 10, 11}};
    const struct {
        const char *settings;
        ne3_val_dis_ctrl wanted;
    } cases[] = {
        {"", {-7, 0, 0, 0, 0, 32, 0, 0, 0, {9, 10, 11}}},
        {"VideoAnalytics.DIS.Localmot_det=ENABLED\nVideoAnalytics.DIS.Illumch_det=on\n"
         "VideoAnalytics.DIS.Edge_det=1\nVideoAnalytics.DIS.Motpow_det=yes\n"
         "VideoAnalytics.DIS.Mf_cutf=70000\nVideoAnalytics.DIS.DisValidCnt=259\n"
         "VideoAnalytics.DIS.Frdiff_det=Enable\nVideoAnalytics.DIS.Me_disable=true\n",
         {-7, 1, 1, 1, 1, 4464, 3, 1, 0, {9, 10, 11}}},
    };
    for (const auto &test : cases) {
        open_library();
        sim_set_dis_defaults(old);
        files.store(test.settings);
        va_dis_getConf(&context);
        run([&] { return va_dis_init(&context); });
        const ne3_val_dis_ctrl &w = test.wanted;
        EXPECT_EQ(nine_lines({-7, 1, 2, 3, 4, 65535, 6, 7, 8}) +
                      nine_lines({-7, w.localmot_det, w.illumch_det, w.edge_det, w.motpow_det,
                                  w.mf_cutf, w.disValidCnt, w.frdiff_det, w.me_disable}),
                  std::regex_replace(output, std::regex("set_ctrl,[0-9]+:"), "set_ctrl,N:"));
        const auto sent = sim_dis_control();
        ASSERT_TRUE(sent);
        EXPECT_EQ(0, std::memcmp(&w, &*sent, sizeof w));
    }
}

} // namespace
