#include "tests/support/local_stream.h"
#include "tests/support/va_fixture.h"
#include "va/od_control.h"
#include "va/options.h"
#include "va/va_od.h"

#include <climits>
#include <cstring>

namespace
{

using std::string;

constexpr OdFrame hd{1920, 1080, 30, true};
constexpr OdFrame sxga{1280, 1024, 30, false};

class VaOdTest : public VaTest
{
protected:
    VaOdTest()
    {
        open_library();
        use(hd);
        gm_bOdEna = 1;
    }

    static void open_library()
    {
        ne3_val_init();
        ne3_val_open();
    }

    void use(const OdFrame &frame)
    {
        context.sensorConf.width = frame.width;
        context.sensorConf.height = frame.height;
        context.sensorConf.fps = frame.fps;
        context.wideAspect = frame.wide;
    }

    // Reads the settings and starts the module. What starting prints.
    string start(const string &settings)
    {
        sim_reset();
        open_library();
        files.store(settings);
        stdout_of([&] { va_od_getConf(&context); });
        return stdout_of([&] { log = log_of([&] { EXPECT_EQ(0, va_od_init(&context)); }); });
    }

    string update(const string &settings)
    {
        files.store(settings);
        return stdout_of([&] { log = log_of([&] { va_od_updateConfig(&context); }); });
    }

    VaContext context{};
    string log;
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
void expect_block(const char *name, const Block &wanted, const std::optional<Block> &block)
{
    ASSERT_TRUE(block) << name;
    EXPECT_EQ(0, std::memcmp(&wanted, &*block, sizeof wanted)) << name;
}

string window(const string &key, int left, int right, int top, int bottom)
{
    return key + "Left=" + std::to_string(left) + "\n" + key + "Right=" + std::to_string(right) +
           "\n" + key + "Top=" + std::to_string(top) + "\n" + key +
           "Bottom=" + std::to_string(bottom) + "\n";
}

const string every_block = window("VMDWindow.NonDetect.V1.", 1000, 500, 0, 9999) +
                           window("VMDWindow.NonDetect.V3.", 9999, 0, 5000, 2500) +
                           window("VMDWindow.Detect.V0.", 0, 5000, 0, 5000) +
                           window("ObjectDetection.O0.", 7500, 2500, 2500, 7500) +
                           window("VideoAnalytics.OD.VmfParam.NdArea1.", 0, 10000, 9000, 10000) +
                           R"(VideoAnalytics.OD.Resolution=1
VMDWindow.Response=1
VideoAnalytics.OD.DiffImgNum=9
VideoAnalytics.OD.DOParam.MaxObjNum=10
VMDWindow.Sensitivity=50
VMDWindow.MaxDetectionSize=640x480
VMDWindow.MinDetectionSize=64x48
VideoAnalytics.OD.SOParam.MaxObjNum=20
ObjectDetection.SODetectionTime=7
VideoAnalytics.OD.SOParam.MaxSizeX=100
VideoAnalytics.OD.SOParam.MaxSizeY=100
VideoAnalytics.OD.SOParam.MinSizeX=3
VideoAnalytics.OD.SOParam.MinSizeY=4
VideoAnalytics.OD.VmfParam.AlarmTimes=45
CrossLine.C1.StartX=0
CrossLine.C1.StartY=0
CrossLine.C1.EndX=9999
CrossLine.C1.EndY=5000
CrossLine.C1.Direction=2
CrossLine.C1.SlowSpeed=50
CrossLine.C1.FastSpeed=10
ObjectDetection.O0.Type=1
ObjectDetection.O0.MinInspectionSize=96x108
VideoAnalytics.OD.VmfParam.ComboFilter.FilterID=0,1
VideoAnalytics.OD.VmfParam.ComboFilter.Interval=5000
)";

// The settings above, worked out by hand for two frames.
struct Translation {
    OdFrame frame;
    Box nonDet1, nonDet3, det0;
    ne3_val_od_obj_set doSet, soSet;
    ne3_val_od_point lineEnd;
    Box area;
    std::uint16_t areaMinX, areaMaxX, areaMinY, areaMaxY, lineMaxX, lineMaxY;
    Box ndArea;
};

// clang-format off
const Translation translations[] = {
    {hd, {96, 0, 192, 1079}, {0, 270, 1919, 540}, {0, 0, 960, 540},
     {30, 53, 40, 7, 6}, {7000, 160, 90, 3, 4},
     {1919, 540}, {480, 270, 1440, 810}, 8, 160, 9, 90, 160, 90, {0, 972, 1920, 1080}},
    {sxga, {64, 0, 128, 1023}, {0, 256, 1279, 512}, {0, 0, 640, 512},
     {30, 80, 56, 10, 7}, {7000, 160, 100, 3, 4},
     {1279, 512}, {320, 256, 960, 768}, 12, 240, 12, 126, 240, 126, {0, 921, 1280, 1024}},
};
// clang-format on

TEST_F(VaOdTest, TranslatesEveryBlock)
{
    for (const Translation &wanted : translations) {
        SCOPED_TRACE(wanted.frame.width);
        use(wanted.frame);
        start(every_block);
        EXPECT_EQ("", log);
        const auto control = sim_od_control();
        ASSERT_TRUE(control);
        EXPECT_EQ(1, control->ctrl.resolution);
        EXPECT_EQ(7, control->ctrl.interval);
        EXPECT_EQ(9, control->ctrl.diffImgNum);
        EXPECT_EQ(7, control->ctrl.flags & 7);
        expect_block<ne3_val_od_masks>("nonDetMasks",
                                       {2, {polygon(wanted.nonDet1), polygon(wanted.nonDet3)}},
                                       control->nonDetMasks);
        expect_block<ne3_val_od_masks>("detMasks", {1, {polygon(wanted.det0)}}, control->detMasks);
        expect_block<ne3_val_od_obj_init>("doInit", {10}, control->doInit);
        expect_block("doSet", wanted.doSet, control->doSet);
        expect_block<ne3_val_od_obj_init>("soInit", {20}, control->soInit);
        expect_block("soSet", wanted.soSet, control->soSet);

        ne3_val_od_vmf vmf{};
        vmf.filterNum = 2;
        vmf.alarmTime = 45;
        vmf.filters[0] = {
            1, 2, {{0, 0}, wanted.lineEnd}, 1, wanted.lineMaxX, 1, wanted.lineMaxY, 0, 4096, 2, {}};
        const ne3_val_od_polygon area = polygon(wanted.area);
        vmf.filters[1] = {
            3,   4, {}, wanted.areaMinX, wanted.areaMaxX, wanted.areaMinY, wanted.areaMaxY, 0,
            158, 0, {}};
        std::memcpy(vmf.filters[1].points, area.points, sizeof area.points);
        vmf.ndAreaNum = 1;
        vmf.ndAreas[0] = polygon(wanted.ndArea);
        vmf.comboValid = 1;
        vmf.comboFilterIds[1] = 1;
        vmf.comboFilterIds[2] = -1;
        vmf.comboIntervals[0] = 5000;
        expect_block("vmf", vmf, control->vmf);
    }
}

TEST_F(VaOdTest, KeepsWhatBelongsToTheLibrary)
{
    ne3_val_od_ctrl old{};
    old.library = 0xdeadbeef;
    old.flags = 0xa0a0;
    sim_set_od_defaults(old);
    stdout_of([&] { EXPECT_EQ(0, va_od_init(&context)); });
    EXPECT_EQ(0xdeadbeef, sim_od_control()->ctrl.library);
    EXPECT_EQ(0xa0a7, sim_od_control()->ctrl.flags);
    const auto prm = sim_od_open_prm();
    EXPECT_TRUE(prm->prm0 == 4 && prm->prm1 == 1 && prm->prm2 == 0 && prm->prm3 == 1);
    EXPECT_EQ(1, context.odOpened);
}

TEST_F(VaOdTest, PrintsWhatItSends)
{
    const string lines =
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
        "od: set odSoParamSetsoParam:soThTime=7000,minSizeX=3,minSizeY=4,maxSizeX=160,"
        "maxSizeY=90\n"
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
    sim_reset();
    open_library();
    sim_set_od_defaults({});
    files.store(every_block);
    stdout_of([&] { va_od_getConf(&context); });
    EXPECT_EQ(lines, stdout_of([&] { va_od_init(&context); }));
}

TEST_F(VaOdTest, FallsBackWhereSettingsCannotBeUsed)
{
    const string static_log = "VA: va_od_set_ctrl,903: Incorrect odSoParamSetConf parameters.\n";
    const string dynamic_log = "VA: Err: od dynamic object parameters are incorrect.\n";
    using Set = std::optional<ne3_val_od_obj_set>;
    const Set none;
    const Set dynamic_default{{40, 160, 90, 2, 2}};
    const string max_x = "VideoAnalytics.OD.SOParam.MaxSizeX=";
    const string max_y = "VideoAnalytics.OD.SOParam.MaxSizeY=";
    const string min =
        "VideoAnalytics.OD.SOParam.MinSizeX=2\nVideoAnalytics.OD.SOParam.MinSizeY=2\n";
    const string max_size = "VMDWindow.MaxDetectionSize=";
    const OdFrame p720{1280, 720, 30, true};
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
        {"default maximum on a smaller frame", p720, "", none, whole, dynamic_log + static_log},
        {"height lowered to the grid", hd, max_size + "1920x4000\n", dynamic_default, whole, static_log},
        {"threshold 0", hd, "VMDWindow.Sensitivity=127\n", Set{{0, 160, 90, 2, 2}}, whole, static_log},
        {"threshold -1", hd, "VMDWindow.Sensitivity=128\n", none, whole, dynamic_log + static_log},
        {"minimum above maximum", hd, "VMDWindow.MinDetectionSize=200x1\n" + max_size + "200x100\n", none,
         whole, dynamic_log + static_log},
        {"invalid records", hd, "VMDWindow.Sensitivity=256\nObjectDetection.SODetectionTime=4\n", none, none, ""},
        {"static minimum at the maximum", hd, max_x + "2\n" + min, dynamic_default, whole, static_log},
        {"smallest static sizes", hd, max_x + "3\n" + max_y + "3\n" + min, dynamic_default,
         Set{{5000, 160, 3, 2, 2}}, ""},
        {"static grid 4:3", sxga, min + max_size + "1280x1024\n", Set{{40, 160, 120, 2, 2}},
         Set{{5000, 160, 120, 2, 2}}, ""},
    };
    // clang-format on
    const auto expect_set = [](const std::optional<ne3_val_od_obj_set> &wanted,
                               const std::optional<ne3_val_od_obj_set> &block) {
        ASSERT_EQ(wanted.has_value(), block.has_value());
        if (wanted)
            expect_block("set", *wanted, block);
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.what);
        use(test.frame);
        start(test.settings);
        EXPECT_EQ(test.log, log);
        const auto control = sim_od_control();
        ASSERT_TRUE(control);
        expect_set(test.doSet, control->doSet);
        expect_set(test.soSet, control->soSet);
        EXPECT_FALSE(control->nonDetMasks || control->detMasks);
        expect_block<ne3_val_od_vmf>("vmf", {}, control->vmf); // attached though empty
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

TEST_F(VaOdTest, ResendsEverythingForAChangeAndNothingWithout)
{
    const string base = every_block;
    start(base);
    const struct {
        const char *change;
        bool resent;
    } cases[] = {
        {"", false},
        {"VMDWindow.Detect.V0.Left=1\n", false},
        {"Motion.M3.Name=door\n", false},
        {"PrivacyMask.M19.Name=wall\n", false},
        {"VideoAnalytics.OD.VmfParam.AlarmTimes=46\n", true},
        {"VMDWindow.NonDetect.V3.Left=9998\n", true},
        {"VideoAnalytics.OD.DOParam.MaxObjNum=11\n", true},
        {"VMDWindow.Sensitivity=51\n", true},
        {"VideoAnalytics.OD.SOParam.MaxObjNum=21\n", true},
        {"ObjectDetection.SODetectionTime=8\n", true},
        {"VMDWindow.Response=2\n", true},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.change);
        update(base); // back, whatever came before
        const int before = calls_of("ne3_val_od_set_ctrl");
        const std::size_t calls = sim_calls().size();
        update(base + test.change);
        EXPECT_EQ(before + test.resent, calls_of("ne3_val_od_set_ctrl"));
        EXPECT_EQ(calls + (test.resent ? 3 : 0), sim_calls().size());
        EXPECT_TRUE(sim_od_control()->nonDetMasks && sim_od_control()->detMasks);
    }
    update("Motion.M3.Name=door\nPrivacyMask.M19.Name=wall\n");
    EXPECT_EQ(1, context.motion[3].valid);
    EXPECT_EQ(1, context.privacyMask[19].valid);
    EXPECT_EQ(0, context.odDetMask[0].points[0].x); // read at start only
}

TEST_F(VaOdTest, ReportsEachRefusedCall)
{
    const struct {
        const char *function;
        int result;
        const char *log;
    } cases[] = {
        {"ne3_val_od_open_ex", -1, "VA: od_open failed.\n"},
        {"ne3_val_od_start", -1, "VA: ne3_val_od_start fail.\n"},
        {"ne3_val_od_get_area_data_mem", 0,
         "VA: ne3_val_od_get_area_data_mem failed. errno = 81E03001\n"},
        {"ne3_val_od_get_ctrl", 0, "VA: ne3_val_od_get_ctrl fail. errno=81E03001\n"},
        {"ne3_val_od_set_ctrl", 0, "VA: ne3_val_od_set_ctrl fail. errno = 81E03001\n"},
    };
    constexpr int code = static_cast<int>(0x81e03001);
    for (const auto &test : cases) {
        SCOPED_TRACE(test.function);
        sim_reset();
        open_library();
        sim_fail(test.function, 1, code);
        stdout_of([&] { log = log_of([&] { EXPECT_EQ(test.result, va_od_init(&context)); }); });
        EXPECT_NE(string::npos, log.find(test.log)) << log;
        EXPECT_EQ(test.function, sim_calls().back());
        EXPECT_FALSE(sim_od_control());
        if (test.result != 0)
            continue;

        // And on a change, which is not tried again.
        sim_fail(test.function, 1, code);
        context.odCtrl = {};
        update("VMDWindow.Response=3\n");
        EXPECT_NE(string::npos, log.find(test.log));
        const std::size_t calls = sim_calls().size();
        update("VMDWindow.Response=3\n");
        EXPECT_EQ(calls, sim_calls().size());
    }
}

TEST_F(VaOdTest, SurvivesHostileSettings)
{
    const string digits(400, '9');
    // clang-format off
    const std::vector<string> values{
        digits, "-" + digits, "%n%s", string("\0", 1), "1x", "x1", "-1x-1", string(100, ','),
        string(2000, 'A'), "2147483647x-2147483648"};
    // clang-format on
    const string keys = every_block;
    for (const string &value : values) {
        string settings;
        for (std::size_t at = 0; at < keys.size(); at = keys.find('\n', at) + 1)
            settings += keys.substr(at, keys.find('=', at) + 1 - at) + value + "\n";
        // Sources stay valid, so that the hostile sizes and speeds reach the translation.
        for (const string key : {"StartX", "StartY", "EndX", "EndY"})
            settings += "CrossLine.C1." + key + "=1\n";
        start(settings);
        ASSERT_TRUE(sim_od_control());
        EXPECT_EQ(1, sim_od_control()->vmf->filterNum);
    }
}

struct RelayCase {
    std::vector<int> events; // of the filters
    std::uint32_t alarms;
    std::array<std::uint32_t, 4> record;
};

TEST_F(VaOdTest, SortsAlarmsByEventCode)
{
    LocalStream vmf("vmf", 1024);
    context.vmfServer = vmf.server;
    // clang-format off
    const RelayCase cases[] = {
        {{1, 3, 3}, 1, {0, 1, 0, 0}}, {{1, 3, 3}, 6, {0, 0, 0, 3}}, {{1, 3, 3}, 4, {0, 0, 0, 2}},
        {{0, 2, 0}, 5, {3, 0, 0, 0}}, {{0, 2, 0}, 2, {0, 0, 1, 0}}, {{1, 1, 1}, 4, {0, 4, 0, 0}},
        {{}, 7, {0, 0, 0, 0}}, {{1}, 2, {0, 0, 0, 0}}, {{1}, 0xfffffff8, {0, 0, 0, 0}},
    };
    // clang-format on
    for (const RelayCase &test : cases) {
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

TEST_F(VaOdTest, RelaysObjectsUnchanged)
{
    LocalStream od("od", 65536);
    context.odServer = od.server;
    std::vector<char> objects(std::size_t{1638} * 40);
    for (std::size_t i = 0; i < objects.size(); ++i)
        objects[i] = static_cast<char>(i * 7);
    const string warning = "******************* err.\n";
    const string refused = "Can't write data to client.sck_path=od\n";
    const std::unique_ptr<char> one_byte(new char('x')); // reading on would be noticed
    const struct {
        int count;
        const void *array;
        string output;
        std::size_t length; // of the record, 0: none
    } cases[] = {
        {3, objects.data(), "", 120},
        {0, objects.data(), "", 0},
        {-1, one_byte.get(), "", 0},
        {3, nullptr, "", 0},
        {2000, nullptr, "", 0},
        {1000, objects.data(), "", 40000},
        {1001, objects.data(), warning, 40040},
        {1638, objects.data(), warning, 65520},
        {1639, one_byte.get(), warning + refused, 0},
        {INT_MAX, one_byte.get(), warning + refused, 0},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.count);
        ne3_val_od_result result{};
        result.objects = test.array;
        result.objectNum = test.count;
        EXPECT_EQ(test.output, stdout_of([&] { va_od_processData(&context, &result); }));
        std::vector<string> wanted;
        if (test.length)
            wanted.emplace_back(objects.data(), test.length);
        EXPECT_TRUE(wanted == od.records());
    }
}

} // namespace
