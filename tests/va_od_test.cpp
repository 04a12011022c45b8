#include "tests/support/client_data.h"
#include "tests/support/local_stream.h"
#include "tests/support/store_file.h"
#include "tests/support/va_fixture.h"
#include "va/drivers.h"
#include "va/od_control.h"

#include <cstring>

namespace
{

using std::string;

constexpr OdFrame hd{1920, 1080, 30, true};
constexpr OdFrame hd_ready{1280, 720, 30, true};
constexpr OdFrame sxga{1280, 1024, 30, false};

class VaOdTest : public VaTest
{
protected:
    VaOdTest() { gm_bOdEna = 1; }

    // Reads the settings and starts the module on a fresh stand-in.
    SimOdControl start(const string &settings, const OdFrame &frame = hd)
    {
        open_library();
        sim_set_defaults({.od = {0xdeadbeef, 0xa0a0, 0, 0, 0, {}, {}, {}, {}, {}, {}, {}}});
        use_sensor(frame.width, frame.height);
        files.store(settings);
        va_od_getConf(&context);
        EXPECT_EQ(0, run([&] { return va_od_init(&context); }));
        return sim_state().od.value_or(SimOdControl{});
    }
};

template <class Block>
void expect_block(const char *name, const std::optional<Block> &wanted,
                  const std::optional<Block> &block)
{
    ASSERT_EQ(wanted.has_value(), block.has_value()) << name;
    EXPECT_TRUE(!wanted || std::memcmp(&*wanted, &*block, sizeof *wanted) == 0) << name;
}

const string every_block =
    window("VMDWindow.NonDetect.V1.", 1000, 500, 0, 9999) +
    window("VMDWindow.NonDetect.V3.", 9999, 0, 5000, 2500) +
    window("VMDWindow.Detect.V0.", 0, 5000, 0, 5000) +
    window("VMDWindow.Detect.V2.", 5000, 9999, 0, 2500) +
    window("ObjectDetection.O0.", 7500, 2500, 2500, 7500) +
    window("VideoAnalytics.OD.VmfParam.NdArea1.", 0, 10000, 9000, 10000) +
    lines("VideoAnalytics.OD.",
          {"Resolution=1", "DiffImgNum=9", "DOParam.MaxObjNum=10", "VmfParam.AlarmTimes=45",
           "VmfParam.ComboFilter.FilterID=0,1", "VmfParam.ComboFilter.Interval=5000"}) +
    lines("VideoAnalytics.OD.SOParam.",
          {"MaxObjNum=20", "MaxSizeX=100", "MaxSizeY=100", "MinSizeX=3", "MinSizeY=4"}) +
    lines("VMDWindow.",
          {"Response=1", "Sensitivity=50", "MaxDetectionSize=640x480", "MinDetectionSize=64x48"}) +
    lines("ObjectDetection.", {"SODetectionTime=7", "O0.Type=1", "O0.MinInspectionSize=96x108"}) +
    lines("CrossLine.C1.", {"StartX=0", "StartY=0", "EndX=9999", "EndY=5000", "Direction=2",
                            "SlowSpeed=50", "FastSpeed=10"});

// The settings above, worked out by hand.
TEST_F(VaOdTest, TranslatesEveryBlock)
{
    const SimOdControl sent = start(every_block, sxga);
    EXPECT_EQ("", log);
    EXPECT_TRUE(sent.ctrl.library == 0xdeadbeef && sent.ctrl.flags == 0xa0a7);
    EXPECT_TRUE(sent.ctrl.resolution == 1 && sent.ctrl.interval == 7 && sent.ctrl.diffImgNum == 9);
    expect_block<ne3_val_od_masks>(
        "nonDetMasks", {{2, {box(64, 0, 128, 1023), box(0, 256, 1279, 512)}}}, sent.nonDetMasks);
    expect_block<ne3_val_od_masks>("detMasks", {{2, {box(0, 0, 640, 512), box(640, 0, 1279, 256)}}},
                                   sent.detMasks);
    expect_block<ne3_val_od_obj_init>("doInit", {{10}}, sent.doInit);
    expect_block<ne3_val_od_obj_set>("doSet", {{30, 80, 56, 10, 7}}, sent.doSet);
    expect_block<ne3_val_od_obj_init>("soInit", {{20}}, sent.soInit);
    expect_block<ne3_val_od_obj_set>("soSet", {{7000, 160, 100, 3, 4}}, sent.soSet);
    const ne3_val_od_filter line{1, 2, {{0, 0}, {1279, 512}}, 1, 240, 1, 126, 0, 4096, 2, {}};
    const ne3_val_od_filter area{
        3, 4, {{320, 256}, {320, 768}, {960, 768}, {960, 256}}, 12, 240, 12, 126, 0, 158, 0, {}};
    expect_block<ne3_val_od_vmf>(
        "vmf", {{2, 45, {line, area}, 1, {box(0, 921, 1280, 1024)}, 1, {0, 1, -1}, {}, {5000, 0}}},
        sent.vmf);
    const auto prm = sim_state().od_prm;
    EXPECT_TRUE(prm->prm0 == 4 && prm->prm1 == 1 && prm->prm2 == 0 && prm->prm3 == 1);
}

TEST_F(VaOdTest, FallsBackWhereSettingsCannotBeUsed)
{
    const string so_log = "VA: va_od_set_ctrl,903: Incorrect odSoParamSetConf parameters.\n";
    const string both_log = "VA: Err: od dynamic object parameters are incorrect.\n" + so_log;
    using Set = std::optional<ne3_val_od_obj_set>;
    const Set none;
    const Set standard{{40, 160, 90, 2, 2}};
    const Set whole{{5000, 160, 90, 2, 2}};
    const Set whole_4_3{{5000, 160, 120, 2, 2}};
    const string so = "VideoAnalytics.OD.SOParam.";
    const string min = lines(so, {"MinSizeX=2", "MinSizeY=2"});
    const string max = "VMDWindow.MaxDetectionSize=";
    const string sensitivity = "VMDWindow.Sensitivity=";
    const struct {
        OdFrame frame;
        string settings;
        Set doSet, soSet;
        string log;
    } cases[] = {
        {hd_ready, "", none, whole, both_log}, // the default maximum is too large for it
        {hd, max + "1920x4000\n", standard, whole, so_log},
        {hd, sensitivity + "127\n", Set{{0, 160, 90, 2, 2}}, whole, so_log},
        {hd, sensitivity + "128\n", none, whole, both_log}, // threshold -1
        {hd, "VMDWindow.MinDetectionSize=200x1\n" + max + "200x100\n", none, whole, both_log},
        {hd, "VMDWindow.MinDetectionSize=1x108\n" + max + "1920x108\n", none, whole, both_log},
        {hd, sensitivity + "256\nObjectDetection.SODetectionTime=4\n", none, none, ""},
        {hd, lines(so, {"MinSizeX=9", "MaxSizeX=9", "MinSizeY=2"}), standard, whole, so_log},
        {hd, lines(so, {"MinSizeX=2", "MinSizeY=9", "MaxSizeY=9"}), standard, whole, so_log},
        {hd, min + so + "MaxSizeY=3\n", standard, Set{{5000, 160, 3, 2, 2}}, ""},
        {sxga, min + max + "1280x1024\n", Set{{40, 160, 120, 2, 2}}, whole_4_3, ""},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.settings);
        const SimOdControl sent = start(test.settings, test.frame);
        EXPECT_EQ(test.log, log);
        expect_block("doSet", test.doSet, sent.doSet);
        expect_block("soSet", test.soSet, sent.soSet);
        EXPECT_FALSE(sent.nonDetMasks || sent.detMasks);
        expect_block<ne3_val_od_vmf>("vmf", {{}}, sent.vmf); // attached though empty
    }
}

TEST_F(VaOdTest, DerivesTheIntervalFromTheFrameRate)
{
    // clang-format off
    const std::pair<int, std::array<int, 6>> cases[] = { // for the settings 1..6
        {15, {7, 5, 4, 2, 1, 1}}, {25, {7, 5, 4, 2, 1, 2}}, {30, {7, 5, 4, 2, 2, 2}},
        {50, {7, 5, 4, 3, 3, 4}}, {60, {7, 5, 4, 4, 4, 4}}};
    // clang-format on
    for (const auto &[fps, intervals] : cases) {
        for (std::int32_t setting = 1; const int interval : intervals)
            EXPECT_EQ(interval, od_working({1, 0, setting++, 1}, {1920, 1080, fps, true}).interval)
                << fps << " before " << setting;
    }
    const OdWorking fixed = od_working({}, hd);
    EXPECT_TRUE(fixed.resolution == 2 && fixed.interval == 2 && fixed.diffImgNum == 5);
}

TEST_F(VaOdTest, SendsTheFilterRecordAsItIs)
{
    ODVmfParamConf conf{};
    conf.valid = conf.filterNum = 1;
    conf.reserved[0] = 5;
    conf.reserved[1] = 6;
    conf.filters[0].slowSpeed = conf.filters[0].fastSpeed = 51;
    conf.filters[0].objMaxSizeX = conf.filters[0].objMaxSizeY = INT32_MAX;
    const ne3_val_od_vmf vmf = od_vmf(conf, hd);
    EXPECT_TRUE(vmf.reserved[0] == 5 && vmf.reserved[1] == 6);
    EXPECT_TRUE(vmf.filters[0].MinDv == 80 && vmf.filters[0].MaxDv == 80);
    // 178956970 cells, cut to 16 bits; the height of a 16:9 frame is the grid's.
    EXPECT_TRUE(vmf.filters[0].objMaxSizeX == 43690 && vmf.filters[0].objMaxSizeY == 90);
}

TEST_F(VaOdTest, SortsAlarmsByEventCode)
{
    LocalStream vmf("vmf", 1024);
    context.vmfServer = vmf.server;
    // clang-format off
    const struct {
        std::vector<int> events; // of the filters
        std::uint32_t alarms;
        std::vector<std::uint32_t> record;
    } cases[] = {
        {{1, 3, 3}, 1, {0, 1, 0, 0}}, {{1, 3, 3}, 7, {0, 1, 0, 3}}, {{1, 3, 3}, 4, {0, 0, 0, 2}},
        {{0, 2, 0}, 5, {3, 0, 0, 0}}, {{0, 2, 0}, 2, {0, 0, 1, 0}}, {{1, 1, 1}, 4, {0, 4, 0, 0}},
        {{}, 7, {0, 0, 0, 0}}, {{1}, 2, {0, 0, 0, 0}}, {{1}, 0xfffffff8, {0, 0, 0, 0}},
    };
    // clang-format on
    for (const auto &test : cases) {
        context.odVmfParam = {};
        for (const int event : test.events)
            context.odVmfParam.filters[context.odVmfParam.filterNum++].event = event;
        ne3_val_od_result result{};
        result.vmfAlarms = test.alarms;
        EXPECT_EQ(0, va_od_processData(&context, &result));
        EXPECT_EQ(std::vector{words(test.record)}, vmf.records());
    }
    const ne3_val_od_result quiet{};
    va_od_processData(&context, &quiet);
    EXPECT_TRUE(vmf.records().empty());
}

} // namespace
