#include "tests/support/va_fixture.h"
#include "va/va_dis.h"

#include <cstring>
#include <regex>

namespace
{

using std::string;

class VaDisTest : public VaTest
{
protected:
    VaDisTest() { open_library(); }

    static void open_library()
    {
        sim_reset();
        ne3_val_init();
        ne3_val_open();
    }

    // Reads the settings and starts the module. What starting prints, without the line numbers.
    string start(const string &settings, int result = 0)
    {
        files.store(settings);
        va_dis_getConf(&context);
        const string output =
            stdout_of([&] { log = log_of([&] { EXPECT_EQ(result, va_dis_init(&context)); }); });
        return std::regex_replace(output, std::regex("va_dis_set_ctrl,[0-9]+:"),
                                  "va_dis_set_ctrl,N:");
    }

    VaContext context{};
    string log;
};

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
        const ne3_val_dis_ctrl &w = test.wanted;
        EXPECT_EQ(nine_lines({-7, 1, 2, 3, 4, 65535, 6, 7, 8}) +
                      nine_lines({-7, w.localmot_det, w.illumch_det, w.edge_det, w.motpow_det,
                                  w.mf_cutf, w.disValidCnt, w.frdiff_det, w.me_disable}),
                  start(test.settings));
        const auto sent = sim_dis_control();
        ASSERT_TRUE(sent);
        EXPECT_EQ(0, std::memcmp(&w, &*sent, sizeof w));
    }
}

TEST_F(VaDisTest, ReportsEachRefusedCall)
{
    const struct {
        const char *function;
        int result;
        const char *log;
    } cases[] = {
        {"ne3_val_dis_open", -1, "VA: dis_open failed.\n"},
        {"ne3_val_dis_start", -1, "VA: dis_start failed.\n"},
        {"ne3_val_dis_get_ctrl", 0, ""},
        {"ne3_val_dis_set_ctrl", 0, "VA: ne3_val_dis_set_ctrl fail.\n"},
    };
    for (const auto &test : cases) {
        open_library();
        sim_fail(test.function, 1, 5);
        const string output = start("", test.result);
        EXPECT_EQ(test.log, log);
        EXPECT_EQ(test.function, sim_calls().back());
        EXPECT_EQ(string(test.function) != "ne3_val_dis_set_ctrl", output.empty());
    }
}

} // namespace
