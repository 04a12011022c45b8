#include "tests/support/local_stream.h"
#include "tests/support/store_file.h"
#include "tests/support/va_fixture.h"
#include "tests/support/wait.h"
#include "util/guarded.h"
#include "va/coprocessor.h"
#include "va/drivers.h"

#include <cstring>
#include <thread>

namespace
{

using std::string;
using Names = std::vector<string>;

static_assert(std::is_copy_assignable_v<VaContext>); // a trivially copyable record need not be

constexpr int library_error = static_cast<int>(0x81e03001);

struct VaModulesTest : VaTest {
    VaModulesTest()
    {
        gm_bOdEna = gm_bTaEna = 1;
        context.report = &report;
    }
    bool refused(VaModule module) const { return report.health.record().of(module).refused; }

    // Of the calls whose names end in `suffix`.
    static Names calls_ending(const string &suffix)
    {
        Names calls = sim_calls();
        std::erase_if(calls, [&](const string &call) { return !call.ends_with(suffix); });
        return calls;
    }
    // All calls but the reads, their common beginning left out; of several alike in a row one.
    static string calls_but_reads()
    {
        Names calls = sim_calls();
        std::erase_if(calls, [](const string &call) { return call.ends_with("_get_data"); });
        calls.erase(std::unique(calls.begin(), calls.end()), calls.end());
        string all;
        for (const string &call : calls)
            all += call.substr(std::strlen("ne3_")) + " ";
        return all;
    }

    VaReport report;
};

TEST_F(VaModulesTest, ReportEachRefusedCall)
{
    using enum VaModule;
    const struct {
        VaModule module;
        const char *call;
        int result; // of the module's init
        string log;
    } cases[] = {
        {Od, "open_ex", -1, "od_open failed."},
        {Od, "start", -1, "ne3_val_od_start fail."},
        {Od, "get_area_data_mem", 0, "ne3_val_od_get_area_data_mem failed. errno = 81E03001"},
        {Od, "get_ctrl", 0, "ne3_val_od_get_ctrl fail. errno=81E03001"},
        {Od, "set_ctrl", 0, "ne3_val_od_set_ctrl fail. errno = 81E03001"},
        {Fd, "open", -1, "fd_open failed."},
        {Fd, "start", -1, "start failed."},
        {Fd, "get_ctrl", -1, "ne3_val_fd_get_ctrl fail. errno = 81E03001"},
        {Fd, "get_area_data_mem", -1, "fd_get_area_data_mem failed. errno = 81E03001"},
        {Fd, "set_ctrl", -1, "ne3_val_fd_set_ctrl fail. errno = 81E03001"},
        {Ta, "open", -1, "ta_open failed."},
        {Ta, "start", -1, "start failed."},
        {Ta, "get_ctrl_ex", 0, "ne3_val_ta_get_ctrl fail. errno = 81E03001"},
        {Ta, "set_ctrl_ex", 0, "ne3_val_ta_set_ctrls fail. errno = 81E03001"},
        {Dis, "open", -1, "dis_open failed."},
        {Dis, "start", -1, "dis_start failed."},
        {Dis, "get_ctrl", 0, ""},
        {Dis, "set_ctrl", 0, "ne3_val_dis_set_ctrl fail."},
    };
    for (const auto &test : cases) {
        const string function = string("ne3_val_") + va::name_of(test.module) + "_" + test.call;
        SCOPED_TRACE(function);
        open_library();
        report.health.configures(test.module, true);
        sim_fail(function, 1, library_error);
        EXPECT_EQ(test.result, run([&] { return va_driver_of(test.module).init(&context); }));
        EXPECT_EQ(test.log.empty() ? "" : "VA: " + test.log + "\n", log);
        EXPECT_EQ(function, sim_calls().back());
        EXPECT_EQ(test.result == 0, refused(test.module));
    }
}

// All settings of a module go to the library when one that it uses has changed. A refused change is
// told and not tried again.
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
    files.store("CameraTampering.T0.gcWaitTime=11\nVideoAnalytics.OD.DOParam.MaxObjNum=11\n"
                "Motion.M29.Name=door\nPrivacyMask.M19.Name=wall\n");
    sim_fail("ne3_val_od_set_ctrl", 1, library_error);
    sim_fail("ne3_val_ta_set_ctrl_ex", 1, library_error);
    update();
    EXPECT_TRUE(context.motion[29].valid && context.privacyMask[19].valid); // read all the same
    const std::size_t calls = sim_calls().size();
    update();
    EXPECT_EQ(calls, sim_calls().size());
    EXPECT_TRUE(refused(VaModule::Od) && refused(VaModule::Ta));
    files.store("");
    update();
    EXPECT_FALSE(refused(VaModule::Od) || refused(VaModule::Ta));
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
        {&od, -1, one_byte.get(), "", 0},
        {&fd, -1, one_byte.get(), "", 0},
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
    gm_bFdEna = gm_bDisEna = 1;
    sim_reset();
    sim_fail("ne3_cl_cpu3_boot", 1, library_error);
    push_results();
    EXPECT_EQ(0, run([this] { return va_init(&context); }));
    std::thread thread(va_proc, &context);
    EXPECT_TRUE(wait_until([] { return calls_ending("_get_data").size() == 3; }));

    files.store("FaceDetection.Sensitivity=10\nVideoAnalytics.DIS.Mf_cutf=7\n"
                "VMDWindow.Sensitivity=51\nCameraTampering.T0.gcWaitTime=11\n#" +
                string(1 << 19, '.')); // slow to read
    va_msg_reconfig(&context, "reconfig", 8);
    EXPECT_TRUE(wait_until([this] { return va::load_shared(context.reconfig) == 0; }));
    push_results();
    EXPECT_TRUE(wait_until([] { return calls_ending("_get_data").size() == 6; }));
    const auto reconfigure = [this] { return va_msg_reconfig(&context, "reconfig", 8) == 0; };
    for (int count = 0; count < 20 && reconfigure(); ++count)
        push_results();
    EXPECT_TRUE(
        wait_until([&] { return reconfigure() && calls_ending("_get_data").size() == 66; }));
    EXPECT_GT(10U, report.settings.shown().reloads); // results go on meanwhile
    sim_fail("ne3_val_od_cancel_data", 1, library_error);
    run([this] { return va_stop(&context); });
    thread.join();

    EXPECT_EQ(1, context.threadEnded);
    EXPECT_LE(2, calls_of("ne3_val_od_cancel_data"));            // tried again
    EXPECT_EQ(string::npos, log.find("get_data failed")) << log; // a cancelled read is no failure
    Names polls = calls_ending("_get_data");
    polls.resize(3);
    EXPECT_EQ((Names{"ne3_val_od_get_data", "ne3_val_ta_get_data", "ne3_val_fd_get_data"}), polls);

    const string modules_closed =
        "val_od_stop val_od_close val_fd_stop val_fd_close val_ta_stop val_ta_close val_dis_stop "
        "val_dis_close val_close val_exit cl_cpu3_shutdown ";
    const string od_set = "val_od_get_area_data_mem val_od_get_ctrl val_od_set_ctrl ";
    const string ta_set = "val_ta_get_ctrl_ex val_ta_set_ctrl_ex ";
    EXPECT_EQ("cl_library_init cl_sys_open_device "
              // a first boot that fails, and what is torn down before the second
              "cl_cpu3_get_memory_info cl_cpu3_xfer_complete cl_cpu3_boot cl_cpu3_xfer_cancel " +
                  modules_closed +
                  "cl_cpu3_get_memory_info cl_cpu3_xfer_complete cl_cpu3_boot val_init val_open "
                  "val_od_open_ex val_od_start " +
                  od_set +
                  "val_fd_open val_fd_start val_fd_get_ctrl val_fd_get_area_data_mem "
                  "val_fd_set_ctrl val_ta_open val_ta_start " +
                  ta_set + "val_dis_open val_dis_start val_dis_get_ctrl val_dis_set_ctrl " +
                  od_set + ta_set +
                  // each at least once, the last two when the thread has ended
                  "val_od_cancel_data val_fd_cancel_data val_ta_cancel_data " + modules_closed +
                  "cl_cpu3_xfer_cancel cl_sys_close_device cl_library_exit ",
              calls_but_reads());
}

TEST_F(VaModulesTest, TamperAlarmGetsTheSettingsCutToTheLibrarysWidths)
{
    ne3_val_ta_ctrl garbage;
    std::memset(&garbage, 0xff, sizeof garbage);
    sim_set_defaults({.ta = garbage});
    files.store(
        lines("CameraTampering.T0.", {"gcRegionSens=300", "dfAlarmTime=4370", "dfPixelRate=-1",
                                      "dfThreshold=65537", "gcWaitTime=310"}));
    gm_bTaEna = 0; // the settings are read all the same
    va_ta_getConf(&context);
    EXPECT_EQ(0, context.taEnable);
    EXPECT_EQ(0, run([&] { return va_ta_init(&context); }));
    ASSERT_TRUE(sim_state().ta);
    EXPECT_TRUE(same_bytes({0xffffffff, 1, 14, 44, 30, 310, 10, 0, 1, 255, 50, 5, 100},
                           *sim_state().ta)); // 4370 * 15 = 65536 + 14
    EXPECT_TRUE(sim_state().ta_prm->prm0 == 1 && sim_state().ta_prm->prm1 == 1);
}

TEST_F(VaModulesTest, StabilisationGetsTheSettings)
{
    sim_set_defaults({.dis = {-7, 1, 2, 3, 4, 65535, 6, 7, 8, {9, 10, 11}}});
    files.store(lines("VideoAnalytics.DIS.",
                      {"Localmot_det=ENABLED", "Illumch_det=on", "Edge_det=true", "Motpow_det=yes",
                       "Mf_cutf=70000", "DisValidCnt=259", "Frdiff_det=no", "Me_disable=1"}));
    va_dis_getConf(&context);
    run([&] { return va_dis_init(&context); });
    ASSERT_TRUE(sim_state().dis);
    EXPECT_TRUE(same_bytes({-7, 1, 1, 0, 1, 4464, 3, 0, 1, {9, 10, 11}}, *sim_state().dis));
}

} // namespace
