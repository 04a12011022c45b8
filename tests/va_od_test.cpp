#include "tests/support/local_stream.h"
#include "tests/support/store_file.h"
#include "tests/support/va_fixture.h"
#include "va/od_control.h"
#include "va/options.h"
#include "va/va_od.h"

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
    void start(const string &settings, const OdFrame &frame = hd)
    {
        open_library();
        ne3_val_od_ctrl old{};
        old.library = 0xdeadbeef;
        old.flags = 0xa0a0;
        sim_set_od_defaults(old);
        use_sensor(frame.width, frame.height);
        files.store(settings);
        va_od_getConf(&context);
        EXPECT_EQ(0, run([&] { return va_od_init(&context); }));
    }

    // The control record as accepted.
    SimOdControl control()
    {
        const auto control = sim_od_control();
        EXPECT_TRUE(control);
        return control.value_or(SimOdControl{});
    }
};

struct Box {
    int left, top, right, bottom; // pixels
};

ne3_val_od_polygon polygon(const Box &box)
{
    return {4,
            {{box.left, box.top},
             {box.left, box.bottom},
             {box.right, box.bottom},
             {box.right, box.top}}};
}

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

// The settings above, worked out by hand for two frames.
struct Translation {
    OdFrame frame;
    Box nonDet1, nonDet3, det0;
    ne3_val_od_obj_set doSet, soSet;
    ne3_val_od_filter line, area;
    Box ndArea;
};

// clang-format off
const Translation translations[] = {
    {hd, {96, 0, 192, 1079}, {0, 270, 1919, 540}, {0, 0, 960, 540}, {30, 53, 40, 7, 6}, {7000, 160, 90, 3, 4},
     {1, 2, {{0, 0}, {1919, 540}}, 1, 160, 1, 90, 0, 4096, 2, {}},
     {3, 4, {{480, 270}, {480, 810}, {1440, 810}, {1440, 270}}, 8, 160, 9, 90, 0, 158, 0, {}},
     {0, 972, 1920, 1080}},
    {sxga, {64, 0, 128, 1023}, {0, 256, 1279, 512}, {0, 0, 640, 512}, {30, 80, 56, 10, 7}, {7000, 160, 100, 3, 4},
     {1, 2, {{0, 0}, {1279, 512}}, 1, 240, 1, 126, 0, 4096, 2, {}},
     {3, 4, {{320, 256}, {320, 768}, {960, 768}, {960, 256}}, 12, 240, 12, 126, 0, 158, 0, {}},
     {0, 921, 1280, 1024}},
};
// clang-format on

// As printed for the first frame.
const string printed_lines =
    "init od.\n"
    "od old prm: resolution=0,interval=0,diffImgNum=0\n"
    "od set mask 1.\n"
    "mask pos 96,0.\nmask pos 96,1079.\nmask pos 192,1079.\nmask pos 192,0.\n"
    "od set mask 3.\n"
    "mask pos 0,270.\nmask pos 0,540.\nmask pos 1919,540.\nmask pos 1919,270.\n"
    "od set det mask 0.\n"
    "detect pos 0,0.\ndetect pos 0,540.\ndetect pos 960,540.\ndetect pos 960,0.\n"
    "od: set odDoParamInitdoMaxObjNum = 10\n"
    "od: set odDoParamSetod do: subth=30,min_dim=7x6,max_dim=53x40\n"
    "od: set odSoParamInitsoMaxObjNum = 20\n"
    "od: set odSoParamSetsoParam:soThTime=7000,minSizeX=3,minSizeY=4,maxSizeX=160,maxSizeY=90\n"
    "od: setup vmf filter, num=2, alarmTime=45.\n"
    "filter_0. node[0] point (0,0)\nfilter_0. node[1] point (1919,540)\n"
    "event=1,objMinSizeX=1,objMinSizeY=1,objMaxSizeX=160,objMaxSizeY=90,MinDv=0,MaxDv=4096,"
    "movingDirection=2\n"
    "filter_1. node[0] point (480,270)\nfilter_1. node[1] point (480,810)\n"
    "filter_1. node[2] point (1440,810)\nfilter_1. node[3] point (1440,270)\n"
    "event=3,objMinSizeX=8,objMinSizeY=9,objMaxSizeX=160,objMaxSizeY=90,MinDv=0,MaxDv=158,"
    "movingDirection=0\n"
    "setup no detect area 0\n(0,972)(0,1080)(1920,1080)(1920,972)\n"
    "combo filter = 1\n";

TEST_F(VaOdTest, TranslatesAndPrintsEveryBlock)
{
    for (const Translation &wanted : translations) {
        SCOPED_TRACE(wanted.frame.width);
        start(every_block, wanted.frame);
        EXPECT_EQ("", log);
        const SimOdControl sent = control();
        EXPECT_EQ(0xdeadbeef, sent.ctrl.library);
        EXPECT_EQ(0xa0a7, sent.ctrl.flags);
        EXPECT_EQ(1, sent.ctrl.resolution);
        EXPECT_EQ(7, sent.ctrl.interval);
        EXPECT_EQ(9, sent.ctrl.diffImgNum);
        expect_block<ne3_val_od_masks>("nonDetMasks",
                                       {{2, {polygon(wanted.nonDet1), polygon(wanted.nonDet3)}}},
                                       sent.nonDetMasks);
        expect_block<ne3_val_od_masks>("detMasks", {{1, {polygon(wanted.det0)}}}, sent.detMasks);
        expect_block<ne3_val_od_obj_init>("doInit", {{10}}, sent.doInit);
        expect_block<ne3_val_od_obj_set>("doSet", wanted.doSet, sent.doSet);
        expect_block<ne3_val_od_obj_init>("soInit", {{20}}, sent.soInit);
        expect_block<ne3_val_od_obj_set>("soSet", wanted.soSet, sent.soSet);

        const ne3_val_od_vmf vmf{
            2,  45,       {wanted.line, wanted.area}, 1, {polygon(wanted.ndArea)}, 1, {0, 1, -1},
            {}, {5000, 0}};
        expect_block<ne3_val_od_vmf>("vmf", vmf, sent.vmf);
        EXPECT_EQ(&wanted == translations, output == printed_lines) << output;
    }
    const auto prm = sim_od_open_prm();
    EXPECT_TRUE(prm->prm0 == 4 && prm->prm1 == 1 && prm->prm2 == 0 && prm->prm3 == 1);
    EXPECT_EQ(1, context.odOpened);
}

TEST_F(VaOdTest, FallsBackWhereSettingsCannotBeUsed)
{
    const string static_log = "VA: va_od_set_ctrl,903: Incorrect odSoParamSetConf parameters.\n";
    const string dynamic_log = "VA: Err: od dynamic object parameters are incorrect.\n";
    using Set = std::optional<ne3_val_od_obj_set>;
    const Set none;
    const Set dynamic_default{{40, 160, 90, 2, 2}};
    const string so = "VideoAnalytics.OD.SOParam.";
    const string min = lines(so, {"MinSizeX=2", "MinSizeY=2"});
    const string max_size = "VMDWindow.MaxDetectionSize=";
    const Set whole{{5000, 160, 90, 2, 2}};
    // clang-format off
    const struct {
        const char *what;
        OdFrame frame;
        string settings;
        Set doSet;
        Set soSet;
        string log;
    } cases[] = {
        {"defaults", hd, "", dynamic_default, whole, static_log},
        {"default maximum on a smaller frame", hd_ready, "", none, whole, dynamic_log + static_log},
        {"height lowered to the grid", hd, max_size + "1920x4000\n", dynamic_default, whole, static_log},
        {"threshold 0", hd, "VMDWindow.Sensitivity=127\n", Set{{0, 160, 90, 2, 2}}, whole, static_log},
        {"threshold -1", hd, "VMDWindow.Sensitivity=128\n", none, whole, dynamic_log + static_log},
        {"minimum above maximum", hd, "VMDWindow.MinDetectionSize=200x1\n" + max_size + "200x100\n", none,
         whole, dynamic_log + static_log},
        {"invalid records", hd, "VMDWindow.Sensitivity=256\nObjectDetection.SODetectionTime=4\n", none, none, ""},
        {"static minimum at the maximum", hd, min + so + "MaxSizeX=2\n", dynamic_default, whole, static_log},
        {"smallest static sizes", hd, min + lines(so, {"MaxSizeX=3", "MaxSizeY=3"}), dynamic_default,
         Set{{5000, 160, 3, 2, 2}}, ""},
        {"static grid 4:3", sxga, min + max_size + "1280x1024\n", Set{{40, 160, 120, 2, 2}},
         Set{{5000, 160, 120, 2, 2}}, ""},
    };
    // clang-format on
    for (const auto &test : cases) {
        SCOPED_TRACE(test.what);
        start(test.settings, test.frame);
        EXPECT_EQ(test.log, log);
        const SimOdControl sent = control();
        expect_block("doSet", test.doSet, sent.doSet);
        expect_block("soSet", test.soSet, sent.soSet);
        EXPECT_FALSE(sent.nonDetMasks || sent.detMasks);
        expect_block<ne3_val_od_vmf>("vmf", {{}}, sent.vmf); // attached though empty
    }
}

TEST_F(VaOdTest, DerivesTheIntervalFromTheFrameRate)
{
    const struct {
        int fps;
        int intervals[6]; // for the settings 1..6
    } cases[] = {
        {15, {7, 5, 4, 2, 1, 1}}, {25, {7, 5, 4, 2, 1, 2}}, {30, {7, 5, 4, 2, 2, 2}},
        {50, {7, 5, 4, 3, 3, 4}}, {60, {7, 5, 4, 4, 4, 4}},
    };
    for (const auto &test : cases) {
        const OdFrame frame{1920, 1080, test.fps, true};
        for (int setting = 1; setting <= 6; ++setting)
            EXPECT_EQ(test.intervals[setting - 1], od_working({1, 0, setting, 1}, frame).interval)
                << test.fps << " " << setting;
    }
    const OdWorking fixed = od_working({}, hd);
    EXPECT_TRUE(fixed.resolution == 2 && fixed.interval == 2 && fixed.diffImgNum == 5);
}

TEST_F(VaOdTest, SortsAlarmsByEventCode)
{
    LocalStream vmf("vmf", 1024);
    context.vmfServer = vmf.server;
    // clang-format off
    const struct {
        std::vector<int> events; // of the filters
        std::uint32_t alarms;
        std::array<std::uint32_t, 4> record;
    } cases[] = {
        {{1, 3, 3}, 1, {0, 1, 0, 0}}, {{1, 3, 3}, 6, {0, 0, 0, 3}}, {{1, 3, 3}, 4, {0, 0, 0, 2}},
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
        const string record(reinterpret_cast<const char *>(test.record.data()), 16);
        EXPECT_EQ(std::vector<string>{record}, vmf.records());
    }
    const ne3_val_od_result quiet{};
    va_od_processData(&context, &quiet);
    EXPECT_TRUE(vmf.records().empty());
}

} // namespace
