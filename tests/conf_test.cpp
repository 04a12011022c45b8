#include "conf/conf.h"
#include "conf/conf_analytics.h"
#include "conf/conf_compare.h"
#include "conf/conf_fd.h"
#include "conf/conf_od.h"
#include "conf/conf_sensor.h"
#include "conf/conf_vmf.h"
#include "conf/findings.h"
#include "tests/support/capture.h"
#include "tests/support/store_file.h"
#include "tests/support/wait.h"

#include <algorithm>
#include <functional>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace
{

TEST(Conf, FlagsAreFiveWordsInAnyCase)
{
    for (const char *word : {"Enabled", "ENABLED", "enable", "Yes", "ON", "1"})
        EXPECT_EQ(isEnabled(word), 1) << word;
    for (const char *word : {"", "Enabled ", " on", "true", "no", "01", "11"})
        EXPECT_EQ(isEnabled(word), 0) << word;
}

TEST(Conf, NumbersAreTheDecimalPrefixHeldInside32Bits)
{
    const std::string nines(400, '9');
    // clang-format off
    const std::pair<std::string, std::int32_t> cases[] = {
        {"12abc", 12}, {"abc", 0}, {" \t-7 8", -7}, {"- 3", 0}, {"2147483648", INT32_MAX},
        {"-" + nines, INT32_MIN}, {std::string(1022, ' ') + "56", 5}}; // the last is cut
    // clang-format on
    StoreFile store;
    for (const auto &[text, value] : cases) {
        store.write(lines("CameraTampering.T0.", {"gcRegionSens=" + text, "dfAlarmTime=" + text}));
        const auto conf = read_record(conf_getTACtrlConf);
        EXPECT_EQ(conf.gcRegionSens, value) << text;
        EXPECT_EQ(std::uint32_t(conf.dfAlarmTime), std::uint32_t(value) * 15) << text;
    }
}

TEST(Conf, KeepsWhatWasReadWhileTheStoreCannotBe)
{
    StoreFile store("CameraTampering.T0.gcRegionSens=5\n");
    const auto value = [] { return read_record(conf_getTACtrlConf).gcRegionSens; };
    EXPECT_EQ(5, value());
    std::filesystem::remove(store.path());
    const std::string said = "sim: " + store.path() +
                             ": cannot be read: No such file or directory; "
                             "what was read last stays in use\n";
    EXPECT_EQ(said, stderr_of([&] { EXPECT_EQ(5, value()); }));
    store.write("CameraTampering.T0.gcRegionSens=6\n");
    EXPECT_EQ(6, value());
    const auto written = std::filesystem::last_write_time(store.path());
    EXPECT_TRUE(wait_until([&] { // until what is read now is kept
        return decltype(written)::clock::now() > written + std::chrono::milliseconds(100);
    }));
    EXPECT_EQ(6, value());
    store.write("CameraTampering.T0.gcRegionSens=7\n");
    std::filesystem::last_write_time(store.path(), written); // as long, and as old, as before
    EXPECT_EQ(7, value());
    const StoreFile other;
    std::filesystem::remove(other.path());
    EXPECT_EQ(50, value()); // of another store nothing was read
}

using Fields = std::vector<std::int32_t>;

template <auto reader>
Fields fields()
{
    const auto record = read_record(reader);
    Fields fields(sizeof record / sizeof fields[0]);
    std::memcpy(fields.data(), &record, sizeof record);
    return fields;
}

TEST(Conf, EveryFieldHasItsKeyAndDefault)
{
    // clang-format off
    const struct {
        Fields (*read)();
        Fields defaults;
        std::string prefix, keys; // in the order of the fields
    } records[] = {
        {fields<conf_getODCtrlConf>, {1, 2, 6, 5}, "", ""},
        {fields<conf_getODDoParamInitConf>, {1, 72}, "", ""},
        {fields<conf_getODDoParamSetConf>, {1, 25, 1920, 1080, 1, 1}, "", ""},
        {fields<conf_getODSoParamInitConf>, {1, 72, 0, 0, 0, 0, 0}, "", ""},
        {fields<conf_getODSoParamSetConf>, {1, 5, 160, 120, 1, 1}, "", ""},
        {fields<conf_getIvsCtrlConf>, {0, 0, 1, 0, 1}, "",
         "EventDetection.CameraTampering EventDetection.FaceDetection "
         "EventDetection.MotionDetection ImageSource.I0.Sensor.DIS EventDetection.VumeruOD"},
        {fields<conf_getTACtrlConf>, {1, 1500, 40, 5, 50, 5, 100, 50, 30, 10, 10},
         "CameraTampering.T0.", "dfAlarmMethod dfAlarmTime dfThreshold dfPixelRate dfAreaRate "
         "dfRepeatTh dfAlarmShape gcRegionSens gcAreaRate gcWaitTime gcAlarmShape"},
        {fields<conf_getDISCtrlConf>, {0, 0, 0, 0, 32, 0, 0, 0}, "VideoAnalytics.DIS.",
         "Localmot_det Illumch_det Edge_det Motpow_det Mf_cutf DisValidCnt Frdiff_det Me_disable"},
        {fields<conf_getFDCtrlConf>, {0, -1, 1, 120, 960, -1, -1, -1, -1}, "",
         "Properties.FaceDetection.Flip VideoAnalytics.FD.AlmMtd VideoAnalytics.FD.SizeChkMtd "
         "FaceDetection.MinDetectionSize FaceDetection.MaxDetectionSize FaceDetection.Sensitivity "
         "VideoAnalytics.FD.FaceTotal VideoAnalytics.FD.AngleMtd VideoAnalytics.FD.Angle"}};
    // clang-format on
    for (const auto &[read, defaults, prefix, keys] : records) {
        StoreFile store;
        std::istringstream rest(keys);
        std::string key;
        EXPECT_EQ(read(), defaults);
        for (std::size_t field = 0; rest >> key; ++field) {
            Fields expected = defaults;
            for (const int value : {0, 1}) {
                store.write(prefix + key + "=" + std::to_string(value) + "\r\n");
                expected[field] = key == "dfAlarmTime" ? 15 * value : value;
                EXPECT_EQ(read(), expected) << key;
            }
        }
    }
}

TEST(Sensor, IsFoundByNameModeAndStandard)
{
    StoreFile store;
    const std::string key = "Properties.ImageSource.Sensor=";
    const std::string mode = "\nProperties.Image.ProfileMode=";
    const std::string type = "\nImageSource.I0.Video.DetectedType=";
    const std::pair<std::string, SensorConfig> cases[] = {
        // The first has the default mode.
        {key + "IMX122" + type + "PAL", {"imx122", "2 MEGA", 0, 0, 1920, 1080, 30}},
        {key + "imx140" + mode + "1080p 25fps", {"imx140", "1080P 25FPS", 0, 1, 1920, 1080, 25}},
        {key + "tw9910" + mode + "D1" + type + "pal", {"tw9910", "d1", 0, 0, 704, 576, 25}},
        {key + "tw9910" + mode + "D1" + type, {"tw9910", "d1", 0, 1, 704, 480, 30}}};
    for (const auto &[settings, expected] : cases) {
        store.write(settings);
        const auto conf = read_record(conf_getSensorConfig);
        EXPECT_EQ(conf_compareSensorConfig(&conf, &expected), 0) << settings;
    }
}

TEST(Sensor, DiffersInAnyFieldButTheTablesOwn)
{
    const SensorConfig one = {"imx122", "2 MEGA", 1, 1, 1920, 1080, 30};
    const std::pair<SensorConfig, bool> cases[] = {
        {{"IMX122", "2 mega", 0, 1, 1920, 1080, 30}, true}, // whether any standard will do
        {{"imx12", "2 MEGA", 1, 1, 1920, 1080, 30}, false},
        {{"imx122", "3 MEGA", 1, 1, 1920, 1080, 30}, false},
        {{"imx122", "2 MEGA", 1, 0, 1920, 1080, 30}, false},
        {{"imx122", "2 MEGA", 1, 1, 1921, 1080, 30}, false},
        {{"imx122", "2 MEGA", 1, 1, 1920, 1081, 30}, false},
        {{"imx122", "2 MEGA", 1, 1, 1920, 1080, 31}, false}};
    for (const auto &[other, equal] : cases)
        EXPECT_EQ(conf_compareSensorConfig(&one, &other) == 0, equal) << &other - &cases[0].first;
}

TEST(Conf, ComparesSoManyBytes)
{
    const std::string zeros(9000, '\0');
    for (const auto &[compare, size] :
         {std::pair(&conf_compareDynamicParamConf, 8U), {&conf_compareOsdConfig, 8104U}}) {
        const std::string other = std::string(size, '\0') + std::string(size, '\1');
        EXPECT_EQ(compare(zeros.data(), other.data()), 0);
        EXPECT_NE(compare(zeros.data(), other.data() + 1), 0);
    }
    ODVmfParamConf pair[2] = {};
    pair[1].comboIntervals[1] = INT32_MIN; // the last byte
    EXPECT_NE(conf_compareODVmfParamConf(&pair[0], &pair[1]), 0);
}

TEST(Sensor, ParsesResolutions)
{
    const std::tuple<const char *, const char *, int, int, const char *, int, int> cases[] = {
        {"imx140", "1080P WDR", 1, 0, "qvga", 320, 180},
        {"", "", 0, 0, "1280x720", 1280, 720},
        {"IMX122", "2 mega", 0, 1, "QQVGA", 160, 90},
        {"imx122", "2 MEGA", 0, 0, "vga", 0, 0},
        {"imx122", "720P", 1, 1, "vga", 0, 0},
        {"ov9712", "720P", 1, 1, "qvga", 0, 0},
        {"imx122", "2 MEGA", 1, 1, "0x720", 0, 720},
        {"imx122", "2 MEGA", 1, 1, "640x", 640, 0},
        {"icx692", "720p", 1, 1, "1080p", 1080, 0},
        {"icx692", "720p", 1, 1, "720p", 1280, 720}};
    for (const auto &[sensor, mode, any, ntsc, text, width, height] : cases) {
        ConfSize size = {-1, -1};
        EXPECT_EQ(conf_parseResolution(sensor, mode, any, ntsc, text, &size.width, &size.height),
                  width && height ? 0 : -1);
        EXPECT_TRUE(size.width == width && size.height == height) << sensor << text;
    }
}

TEST(Sensor, HasFrameBuffers)
{
    StoreFile store;
    FrameBufferConf conf{};
    for (const auto &[count, used] : {std::pair("", 6), {"8", 8}, {"0", 6}}) {
        store.write("MPoolMgr.BufferNum=" + std::string(count) + "\n");
        EXPECT_EQ(FrameBufferConf_Get("IMX185", &conf), 0);
        EXPECT_EQ(conf.bufferNum, used);
    }
    const std::int32_t sizes[12] = {1920, 1080, 720, 576};
    EXPECT_TRUE(std::ranges::equal(conf.sizes, sizes));
    EXPECT_EQ(FrameBufferConf_Get("hm2055", &conf), -1);
    EXPECT_EQ(conf.bufferNum, 6);
}

TEST(Sensor, GuessesTheNearestResolution)
{
    ConfSize size;
    const std::int32_t list[] = {4, 1600, 1200, 640, 480, 320, 240, 960, 540};
    const std::pair<const char *, int> guesses[] = {
        {"vga", 480}, {"SXGA", 1200}, {"unknown", 240}, {"1x2", 2}}; // 1280 is as far from 960
    for (const auto &[text, height] : guesses) {
        EXPECT_EQ(guess_resolution(list, text, &size.width, &size.height), 0);
        EXPECT_EQ(size.height, height) << text;
    }
}

const std::string od = "VideoAnalytics.OD.";
const std::string vmf = od + "VmfParam.";

TEST(Windows, AreOrderedAndMasksNeedAName)
{
    const StoreFile store(
        window("VMDWindow.Detect.V2.", 7000, 2000, 500, 9000) +
        window("FaceDetection.F29.", 8000, 2000, 500, 4500) + window("Motion.M3.", 90, 20, 7, 10) +
        window("Motion.M5.", 5, 6, 7, 8) +
        lines("FaceDetection.", {"F29.WindowType=Detected", "F28.WindowType=detected"}) +
        lines("Motion.", {"M3.Name=door", "M3.WindowType=INCLUDE", "M3.ObjectSize=15",
                          "M3.Sensitivity=" + std::string(126, ' ') + "80", "M6.Name=x",
                          "M7.Name=x", "M7.WindowType=in"}) +
        lines("PrivacyMask.M0.", {"Name=" + std::string(2000, 'n'), "Left=1", "Right=2", "Top=3"}) +
        lines("PrivacyMask.M2.", {"Name=x", "Bottom=4", "Level=5"}));
    EXPECT_TRUE(same_bytes(read_record(conf_getODDetMaskConf, 2),
                           {1, 2, 4, {{2000, 500}, {2000, 9000}, {7000, 9000}, {7000, 500}}}));
    const auto &face = conf_getFDWindowConf;
    EXPECT_TRUE(same_bytes(read_record(face, 29), {1, 0, 2000, 500, 6000, 4000, 1}));
    EXPECT_TRUE(same_bytes(read_record(face, 28), {}));
    const auto &motion = conf_getMotionConfig;
    EXPECT_TRUE(same_bytes(read_record(motion, 3), {1, 20, 7, 70, 3, 1, 15, 8, 3}));
    EXPECT_TRUE(same_bytes(read_record(motion, 5), {0, 0, 0, 0, 0, 0, 0, 0, 5}));
    EXPECT_TRUE(same_bytes(read_record(motion, 6), {1, 0, 0, 0, 0, 1, 0, 0, 6})); // no type
    EXPECT_TRUE(same_bytes(read_record(motion, 7), {1, 0, 0, 0, 0, 0, 0, 0, 7})); // an unknown one
    const auto &mask = conf_getPrivacyMaskConfig;
    PrivacyMaskConfig cut = {1, "", 1, 2, 3, 100, 100, 0};
    std::fill_n(cut.name, 63, 'n');
    EXPECT_TRUE(same_bytes(read_record(mask, 0), cut));
    EXPECT_TRUE(same_bytes(read_record(mask, 1), {0, "", 0, 0, 0, 0, 0, 1}));
    EXPECT_TRUE(same_bytes(read_record(mask, 2), {1, "x", 100, 100, 100, 4, 5, 2}));
}

// The flag at the beginning of a record that is cleared when it is not valid.
template <auto Reader, auto... Index>
int valid()
{
    const auto record = read_record(Reader, Index...);
    std::int32_t flag;
    std::memcpy(&flag, &record, sizeof flag);
    EXPECT_TRUE(flag || same_bytes(record, {}));
    return flag;
}

struct Range {
    std::string settings; // with a # in the place of the number
    int low, high;
    std::function<int()> valid;
};

std::vector<Range> all_ranges()
{
    const std::string so = od + "SOParam.";
    const std::string min_size = "VMDWindow.MinDetectionSize=";
    const std::string max_size = "VMDWindow.MaxDetectionSize=";
    const std::string combo = vmf + "ComboFilter.";
    constexpr auto ctrl = valid<conf_getODCtrlConf>;
    constexpr auto do_set = valid<conf_getODDoParamSetConf>;
    constexpr auto so_set = valid<conf_getODSoParamSetConf>;
    const auto area = [] { return read_record(conf_getObjectDetectionConf, 0).valid; };
    const auto line = [] { return read_record(conf_getCrossLineConf, 0).valid; };
    const auto nd_area = [] { return read_record(conf_getODVmfParamConf).ndAreaNum; };
    const auto combined = [] { return read_record(conf_getODVmfParamConf).comboValid; };
    // clang-format off
    std::vector<Range> ranges = {
        {od + "Resolution=#", 0, 2, ctrl}, {od + "DiffImgNum=#", 1, 15, ctrl},
        {"VMDWindow.Response=#", 1, 6, ctrl}, {"VMDWindow.Sensitivity=#", 0, 255, do_set},
        {min_size + "#x9", 1, 4000, do_set}, {min_size + "9x#", 1, 4000, do_set},
        {max_size + "#x9", 1, 4000, do_set}, {max_size + "9x#", 1, 4000, do_set},
        {od + "DOParam.MaxObjNum=#", 1, 72, valid<conf_getODDoParamInitConf>},
        {so + "MaxObjNum=#", 1, 72, valid<conf_getODSoParamInitConf>},
        {"ObjectDetection.SODetectionTime=#", 5, 86400, so_set},
        {so + "MaxSizeX=#", 2, 160, so_set}, {so + "MaxSizeY=#", 2, 120, so_set},
        {so + "MaxSizeX=50\n" + so + "MinSizeX=#", 1, 50, so_set},
        {so + "MaxSizeY=60\n" + so + "MinSizeY=#", 1, 60, so_set},
        {combo + "Interval=1,2\n" + combo + "FilterID=0,1,#", 2, 2, combined},
        {combo + "FilterID=2,0\n" + combo + "Interval=#", 0, 600000, combined}};
    const Range windows[] = {{"VMDWindow.NonDetect.V0.", 0, 9999, valid<conf_getODMaskConf, 0>},
                             {"VMDWindow.Detect.V0.", 0, 9999, valid<conf_getODDetMaskConf, 0>},
                             {"FaceDetection.F0.", 0, 9999, valid<conf_getFDWindowConf, 0>},
                             {"ObjectDetection.O0.", 0, 9999, area},
                             {vmf + "NdArea0.", 0, 10000, nd_area}};
    // clang-format on
    for (const char *end : {"StartX=#", "StartY=#", "EndX=#", "EndY=#"})
        ranges.push_back({lines("CrossLine.C0.", {"StartX=5", "StartY=6", "EndX=7", "EndY=8", end}),
                          0, 9999, line});
    for (const auto &[key, low, high, reader] : windows) {
        for (const char *edge : {"Left=#", "Right=#", "Top=#", "Bottom=#"})
            ranges.push_back({window(key, 50, 60, 70, 80) + key + edge, low, high, reader});
        // At 0 they enclose nothing.
        ranges.push_back({window(key, 50, 0, 70, 80) + key + "Left=#", 1, high, reader});
        ranges.push_back({window(key, 50, 60, 0, 80) + key + "Bottom=#", 1, high, reader});
    }
    return ranges;
}

TEST(Ranges, IncludeBothEnds)
{
    StoreFile store;
    for (const auto &[settings, low, high, valid] : all_ranges()) {
        for (const int value : {low - 1, low, high, high + 1}) {
            store.write(std::regex_replace(settings, std::regex("#"), std::to_string(value)));
            EXPECT_EQ(valid(), low <= value && value <= high) << settings << value;
        }
    }
    for (const char *size : {"64", "", "x1", "1x", "1X1", "-1x-1", "1 x1"}) {
        store.write(lines("VMDWindow.MinDetectionSize=", {size}));
        EXPECT_EQ(valid<conf_getODDoParamSetConf>(), 0) << size;
    }
}

std::string area(int n, int type)
{
    const std::string key = "ObjectDetection.O" + std::to_string(n) + ".";
    return window(key, 30, 10, 20, 40) + key + "Type=" + std::to_string(type) + "\n" + key +
           "MinInspectionSize=3x4\n" + key + "MaxInspectionSize=5\n";
}

std::string line(int n)
{
    return lines("CrossLine.C" + std::to_string(n) + ".",
                 {"StartX=1", "StartY=2", "EndX=3", "EndY=4", "Direction=5", "SlowSpeed=6",
                  "FastSpeed=7", "MinInspectionSize=8x9", "MaxInspectionSize=10x11"});
}

std::string combo(const std::string &ids, const std::string &intervals)
{
    return lines(vmf + "ComboFilter.", {"FilterID=" + ids, "Interval=" + intervals});
}

TEST(Filters, AreLinesThenAreasWithNoDetectionAreasAndAChain)
{
    // clang-format off
    const ODVmfFilterConf lined = {{}, 1, 2, {{1, 2}, {3, 4}}, 8, 10, 9, 11, 6, 7, 5};
    const ODVmfFilterConf point = {{}, 1, 2, {{9, 8}, {9, 8}}, 1, 1920, 1, 1080, 1, 100, -1};
    const auto box = [](std::int32_t event) {
        return ODVmfFilterConf{
            {}, event, 4, {{10, 20}, {10, 40}, {30, 40}, {30, 20}}, 3, 1920, 4, 1080, 1, 100, 0};
    };
    const std::pair<std::string, ODVmfParamConf> cases[] = {
        {lines("CrossLine.C0.",
               {"StartX=9", "StartY=8", "EndX=9", "EndY=8", "MinInspectionSize=8"}),
         {1, 1, 30, {point}, 0, {}, 0, {0, -1, -1}, {}, {}}},
        {line(1) + area(0, 1) + area(2, 2),
         {1, 3, 30, {lined, box(3), box(2)}, 0, {}, 0, {0, -1, -1}, {}, {}}},
        {area(0, 0) + area(1, 5) + area(2, -1),
         {1, 3, 30, {box(0), box(0), box(0)}, 0, {}, 0, {0, -1, -1}, {}, {}}},
        {line(2) + line(0) + area(1, 1) + area(2, 2) + area(3, 0) + line(3),
         {1, 3, 30, {lined, lined, box(3)}, 0, {}, 0, {0, -1, -1}, {}, {}}},
        {window(vmf + "NdArea1.", 9, 0, 3, 7) + window(vmf + "NdArea3.", 5, 6, 8, 7),
         {0, 0, 30, {}, 2, {{4, {{0, 3}, {0, 7}, {9, 7}, {9, 3}}},
                            {4, {{5, 7}, {5, 8}, {6, 8}, {6, 7}}}}, 0, {0, -1, -1}, {}, {}}},
        {combo("0,1", "5000"), {0, 0, 30, {}, 0, {}, 1, {0, 1, -1}, {}, {5000, 0}}},
        {combo("0,1,2", "7"), {0, 0, 30, {}, 0, {}, 0, {0, 1, 2}, {}, {7, 0}}},
        {combo("0,1,2,0", "10,20,30"), {0, 0, 30, {}, 0, {}, 1, {0, 1, 2}, {}, {10, 20}}},
        {combo(" 1 ; , 2x,0", "1,2"), {0, 0, 30, {}, 0, {}, 1, {1, 2, 0}, {}, {1, 2}}},
        {combo("1,1", "7"), {0, 0, 30, {}, 0, {}, 0, {1, 1, -1}, {}, {7, 0}}},
        {combo("0,1", "1,2"), {0, 0, 30, {}, 0, {}, 0, {0, 1, -1}, {}, {1, 2}}}};
    // clang-format on
    StoreFile store;
    for (const auto &[settings, expected] : cases) {
        store.write(settings);
        EXPECT_TRUE(same_bytes(read_record(conf_getODVmfParamConf), expected)) << settings;
    }
    store.write(line(1) + "CrossLine.C0.StartX=1\n");
    const auto printed = stdout_of([] { read_record(conf_getODVmfParamConf); }); // reads twice
    EXPECT_EQ(printed, "cross line start (1,2), end (3,4)\ncross line start (1,2), end (3,4)\n");
}

// What does not take effect: - was rejected, ! is unusable; the types of windows and areas; and the
// filters with event and bit.
std::string reported(const ConfFindings &findings)
{
    std::string all;
    for (const auto &[key, setting] : findings.settings) {
        const auto &[value, is_default, rejected, unusable] = setting;
        if (key.ends_with("Type") && rejected.empty())
            all += key + "=" + value + " ";
        if (!setting.in_use())
            all += key + (rejected.empty() ? "" : "-") + (unusable.empty() ? "" : "!") + " ";
    }
    for (const auto &[number, filter] : findings.filters)
        all += filter.name + "/" + std::to_string(10 * filter.event + filter.bit) + " ";
    return all;
}

TEST(Findings, ReportWhatDoesNotTakeEffect)
{
    const std::string so = od + "SOParam.";
    const std::string moving =
        "VMDWindow.MaxDetectionSize! VMDWindow.MinDetectionSize! VMDWindow.Sensitivity! ";
    const std::string still =
        so + "MaxSizeX! " + so + "MaxSizeY! " + so + "MinSizeX! " + so + "MinSizeY! ";
    // The settings, what the users of the records judge, and what is reported.
    const std::tuple<std::string, std::function<void()>, std::string> steps[] = {
        {"",
         [] {
             conf_useODDoParamSetConf("too many");
             conf_useStaticSizes("too small");
             conf_rejectFDSizes("no pair");
         },
         "FaceDetection.MaxDetectionSize- FaceDetection.MinDetectionSize- " + moving + still},
        {line(0) + line(1) + line(2) + window("ObjectDetection.O1.", 1, 2, 3, 4) + combo("0", "0"),
         [] {},
         "ObjectDetection.O1.Bottom- ObjectDetection.O1.Left- ObjectDetection.O1.Right- "
         "ObjectDetection.O1.Top- " +
             moving + still + vmf +
             "ComboFilter.FilterID- CrossLine.C0/10 CrossLine.C1/11 CrossLine.C2/12 "},
        {line(1) + area(1, 1) + combo("0,1", "5"), [] { conf_useODDoParamSetConf(nullptr); },
         "ObjectDetection.O1.Type=1 " + still + "CrossLine.C1/10 ObjectDetection.O1/30 "},
        {window("FaceDetection.F10.", 1, 2, 3, 4) + "FaceDetection.F1.Left=5\n" +
             "FaceDetection.F1.Top=6\nVMDWindow.Sensitivity=256\n" + combo("0,1", "7"),
         [] { conf_useStaticSizes(nullptr); },
         "FaceDetection.F1.Left- FaceDetection.F1.Top- FaceDetection.F10.WindowType=-1 "
         "VMDWindow.MaxDetectionSize- "
         "VMDWindow.MinDetectionSize- VMDWindow.Sensitivity- " +
             vmf + "ComboFilter.FilterID- " + vmf + "ComboFilter.Interval- "},
        {"Motion.M0.Name=x\nVMDWindow.Sensitivity=x\n", [] {}, ""}};
    StoreFile store;
    ConfFindings findings;
    for (const auto &[settings, judge, wanted] : steps) {
        store.write(settings);
        const ConfFindings::Collector collector(findings);
        read_record(conf_getODDoParamSetConf);
        read_record(conf_getODSoParamSetConf);
        read_record(conf_getODVmfParamConf);
        read_record(conf_getFDCtrlConf);
        read_record(conf_getFDWindowConf, 10);
        read_record(conf_getFDWindowConf, 1);
        read_record(conf_getMotionConfig, 0); // is not reported
        judge();
        EXPECT_EQ(reported(findings), wanted) << settings;
    }
    const auto &sensitivity = findings.settings.at("VMDWindow.Sensitivity").value;
    EXPECT_EQ(sensitivity, "x (no number: counts as 0)");
    store.write("VMDWindow.Sensitivity=256\n");
    read_record(conf_getODDoParamSetConf);
    EXPECT_EQ(reported(findings), "") << "nobody collects any more";
}

} // namespace
