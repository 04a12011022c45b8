#include "tests/support/local_stream.h"
#include "tests/support/store_file.h"
#include "tests/support/va_fixture.h"
#include "tests/support/wait.h"
#include "va/options.h"
#include "va/va_dis.h"
#include "va/va_fd.h"
#include "va/va_od.h"
#include "va/va_proc.h"
#include "va/va_ta.h"

#include <cstring>
#include <thread>

namespace
{

using std::string;
using Names = std::vector<string>;

constexpr int library_error = static_cast<int>(0x81e03001);

struct VaModulesTest : VaTest {
    VaModulesTest() { gm_bOdEna = gm_bTaEna = 1; }

    // Of the calls whose names end in `suffix`.
    static Names calls_ending(const string &suffix)
    {
        Names calls = sim_calls();
        std::erase_if(calls, [&](const string &call) { return !call.ends_with(suffix); });
        return calls;
    }
};

TEST_F(VaModulesTest, ReportEachRefusedCall)
{
    const struct {
        const char *function;
        int (*init)(VaContext *);
        int result;
        const char *log;
    } cases[] = {
        {"ne3_val_od_open_ex", va_od_init, -1, "VA: od_open failed.\n"},
        {"ne3_val_od_start", va_od_init, -1, "VA: ne3_val_od_start fail.\n"},
        {"ne3_val_od_get_area_data_mem", va_od_init, 0,
         "VA: ne3_val_od_get_area_data_mem failed. errno = 81E03001\n"},
        {"ne3_val_od_get_ctrl", va_od_init, 0, "VA: ne3_val_od_get_ctrl fail. errno=81E03001\n"},
        {"ne3_val_od_set_ctrl", va_od_init, 0, "VA: ne3_val_od_set_ctrl fail. errno = 81E03001\n"},
        {"ne3_val_fd_open", va_fd_init, -1, "VA: fd_open failed.\n"},
        {"ne3_val_fd_start", va_fd_init, -1, "VA: start failed.\n"},
        {"ne3_val_fd_get_ctrl", va_fd_init, -1, "VA: ne3_val_fd_get_ctrl fail. errno = 81E03001\n"},
        {"ne3_val_fd_get_area_data_mem", va_fd_init, -1,
         "VA: fd_get_area_data_mem failed. errno = 81E03001\n"},
        {"ne3_val_fd_set_ctrl", va_fd_init, -1, "VA: ne3_val_fd_set_ctrl fail. errno = 81E03001\n"},
        {"ne3_val_ta_open", va_ta_init, -1, "VA: ta_open failed.\n"},
        {"ne3_val_ta_start", va_ta_init, -1, "VA: start failed.\n"},
        {"ne3_val_ta_get_ctrl_ex", va_ta_init, 0,
         "VA: ne3_val_ta_get_ctrl fail. errno = 81E03001\n"},
        {"ne3_val_ta_set_ctrl_ex", va_ta_init, 0,
         "VA: ne3_val_ta_set_ctrls fail. errno = 81E03001\n"},
        {"ne3_val_dis_open", va_dis_init, -1, "VA: dis_open failed.\n"},
        {"ne3_val_dis_start", va_dis_init, -1, "VA: dis_start failed.\n"},
        {"ne3_val_dis_get_ctrl", va_dis_init, 0, ""},
        {"ne3_val_dis_set_ctrl", va_dis_init, 0, "VA: ne3_val_dis_set_ctrl fail.\n"},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.function);
        open_library();
        sim_fail(test.function, 1, library_error);
        EXPECT_EQ(test.result, run([&] { return test.init(&context); }));
        EXPECT_EQ(test.log, log);
        EXPECT_EQ(test.function, sim_calls().back());
    }
}

// All settings of a module go to the library when one that it uses has changed. A refused change is
// not tried again.
TEST_F(VaModulesTest, SendEachChangeOnce)
{
    const auto update = [this] {
        return run([this] { return va_od_updateConfig(&context) + va_ta_updateConfig(&context); });
    };
    const auto sent = [] {
        return std::pair(calls_of("ne3_val_od_set_ctrl"), calls_of("ne3_val_ta_set_ctrl_ex"));
    };
    run([this] { return va_od_getConf(&context) + va_ta_getConf(&context); });
    run([this] { return va_od_init(&context) + va_ta_init(&context); });
    const struct {
        string change;
        int od, ta; // calls
    } cases[] = {
        {"", 0, 0},
        {"VMDWindow.Detect.V0.Left=1\n", 0, 0}, // read at start only
        {"Motion.M3.Name=door\n", 0, 0},
        {"PrivacyMask.M19.Name=wall\n", 0, 0},
        {"VideoAnalytics.OD.VmfParam.AlarmTimes=46\n", 1, 0},
        {window("VMDWindow.NonDetect.V3.", 0, 1, 0, 1), 1, 0},
        {"VideoAnalytics.OD.DOParam.MaxObjNum=11\n", 1, 0},
        {"VMDWindow.Sensitivity=51\n", 1, 0},
        {"VideoAnalytics.OD.SOParam.MaxObjNum=21\n", 1, 0},
        {"ObjectDetection.SODetectionTime=8\n", 1, 0},
        {"VMDWindow.Response=2\n", 1, 0},
        {"CameraTampering.T0.dfAreaRate=1\n", 0, 1},
    };
    for (const auto &test : cases) {
        files.store("");
        update();
        const auto [od, ta] = sent();
        files.store(test.change);
        update();
        EXPECT_EQ(std::pair(od + test.od, ta + test.ta), sent()) << test.change;
    }
    files.store("CameraTampering.T0.gcWaitTime=11\nVideoAnalytics.OD.DOParam.MaxObjNum=11\n");
    sim_fail("ne3_val_od_set_ctrl", 1, library_error);
    sim_fail("ne3_val_ta_set_ctrl_ex", 1, library_error);
    update();
    const std::size_t calls = sim_calls().size();
    update();
    EXPECT_EQ(calls, sim_calls().size());
}

TEST_F(VaModulesTest, RelayEntriesUnchanged)
{
    LocalStream od("od", 65536);
    LocalStream fd("fd", 1024);
    context.odServer = od.server;
    context.fdServer = fd.server;
    string entries(std::size_t{1638} * NE3_VAL_OD_OBJECT_SIZE, '\0');
    for (std::size_t i = 0; i < entries.size(); ++i)
        entries[i] = static_cast<char>(i * 7);
    const std::unique_ptr<char> one_byte(new char('x')); // reading on would be noticed
    const void *const all = entries.data();
    const string warning = "******************* err.\n";
    const string od_refused = "Can't write data to client.sck_path=od\n";
    const string fd_refused = "Can't write data to client.sck_path=fd\n";
    const struct {
        LocalStream *stream;
        int count;
        const void *array;
        string output;
        std::size_t length; // of the record, 0: none
    } cases[] = {
        {&od, 0, all, "", 0},
        {&od, 2000, nullptr, "", 0},
        {&od, 1000, all, "", 40000},
        {&od, 1638, all, warning, 65520},
        {&od, 1639, one_byte.get(), warning + od_refused, 0},
        {&od, 107'374'183, one_byte.get(), warning + od_refused, 0}, // 24 bytes more than 4 GiB
        {&fd, 36, all, "", 1008},
        {&fd, 37, one_byte.get(), fd_refused, 0},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.count);
        const ne3_val_od_result objects{test.array, {}, 0, test.count, {}};
        const ne3_val_fd_result faces{test.array, {}, test.count, 0};
        EXPECT_EQ(0, run([&] {
                      return test.stream == &od ? va_od_processData(&context, &objects)
                                                : va_fd_processData(&context, &faces);
                  }));
        EXPECT_EQ(test.output, output);
        Names wanted;
        if (test.length)
            wanted.push_back(entries.substr(0, test.length));
        EXPECT_TRUE(wanted == test.stream->records());
    }
}

TEST_F(VaModulesTest, ArePolledInOrderReconfiguredAndStopped)
{
    const auto push_results = [] {
        sim_push_fd({}, 0);
        sim_push_ta({});
        sim_push_od({}, 0, 0);
    };
    context.odEnable = context.fdEnable = context.taEnable = context.disEnable = 1;
    push_results();
    context.wake = va_new_wake();
    std::thread thread(va_proc, &context);
    EXPECT_TRUE(wait_until([] { return calls_ending("_get_data").size() == 3; }));
    event_loop(1); // without an end, but for the wake

    // Everything differs from what the context holds, which nothing has read from the store.
    files.store("FaceDetection.Sensitivity=10\nVideoAnalytics.DIS.Mf_cutf=7\n");
    va_msg_reconfig(&context, "reconfig", 8);
    EXPECT_TRUE(wait_until([this] { return context.reconfig == 0; }));
    push_results();
    EXPECT_TRUE(wait_until([] { return calls_ending("_get_data").size() == 6; }));
    run([this] { return va_stop(&context); });
    thread.join();
    free_soft_queue(&context.wake);

    EXPECT_EQ(1, context.threadEnded);
    EXPECT_EQ(string::npos, log.find("get_data failed")) << log; // a cancelled read is no failure
    Names cancels = calls_ending("_cancel_data");
    cancels.erase(std::unique(cancels.begin(), cancels.end()), cancels.end());
    EXPECT_EQ((Names{"ne3_val_od_cancel_data", "ne3_val_fd_cancel_data", "ne3_val_ta_cancel_data"}),
              cancels); // each at least once, the last two when the thread has ended
    Names polls = calls_ending("_get_data");
    polls.resize(3);
    EXPECT_EQ((Names{"ne3_val_od_get_data", "ne3_val_ta_get_data", "ne3_val_fd_get_data"}), polls);
    EXPECT_EQ(2, calls_of("ne3_val_od_set_ctrl") * calls_of("ne3_val_fd_set_ctrl"));
    EXPECT_EQ(2, calls_of("ne3_val_ta_set_ctrl_ex") * calls_of("ne3_val_dis_set_ctrl"));
}

TEST_F(VaModulesTest, TamperAlarmGetsTheSettingsCutToTheLibrarysWidths)
{
    ne3_val_ta_ctrl garbage;
    std::memset(&garbage, 0xff, sizeof garbage);
    sim_set_ta_defaults(garbage);
    files.store(
        lines("CameraTampering.T0.", {"gcRegionSens=300", "dfAlarmTime=4370", "dfPixelRate=-1",
                                      "dfThreshold=65537", "gcWaitTime=310"}));
    gm_bTaEna = 0; // the settings are read all the same
    va_ta_getConf(&context);
    EXPECT_EQ(0, context.taEnable);
    EXPECT_EQ(0, run([&] { return va_ta_init(&context); }));
    ASSERT_TRUE(sim_ta_control());
    EXPECT_TRUE(same_bytes({0xffffffff, 1, 14, 44, 30, 310, 10, 0, 1, 255, 50, 5, 100},
                           *sim_ta_control())); // 4370 * 15 = 65536 + 14
    EXPECT_TRUE(sim_open_prm("ta")->prm0 == 1 && sim_open_prm("ta")->prm1 == 1);
}

TEST_F(VaModulesTest, StabilisationGetsTheSettings)
{
    sim_set_dis_defaults({-7, 1, 2, 3, 4, 65535, 6, 7, 8, {9, 10, 11}});
    files.store(lines("VideoAnalytics.DIS.",
                      {"Localmot_det=ENABLED", "Illumch_det=on", "Edge_det=true", "Motpow_det=yes",
                       "Mf_cutf=70000", "DisValidCnt=259", "Frdiff_det=no", "Me_disable=1"}));
    va_dis_getConf(&context);
    run([&] { return va_dis_init(&context); });
    ASSERT_TRUE(sim_dis_control());
    EXPECT_TRUE(same_bytes({-7, 1, 1, 0, 1, 4464, 3, 0, 1, {9, 10, 11}}, *sim_dis_control()));
}

} // namespace
