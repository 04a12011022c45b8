#include "conf/conf.h"
#include "conf/conf_analytics.h"
#include "conf/conf_catalogue.h"
#include "conf/conf_fd.h"
#include "conf/conf_sensor.h"
#include "tests/support/capture.h"
#include "tests/support/store_file.h"

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace
{

TEST(Conf, FlagsAreFiveWordsAndRangesIncludeBothEnds)
{
    for (const char *word : {"Enabled", "ENABLED", "enable", "Yes", "ON", "on", "1"})
        EXPECT_EQ(isEnabled(word), 1) << word;
    for (const char *word : {"", "Enabled ", " on", "true", "no", "off", "0", "01", "11", "y"})
        EXPECT_EQ(isEnabled(word), 0) << word;
    EXPECT_TRUE(int_chk_range(5, 5, 5) == 1 && int_chk_range(5, 5, 9) && int_chk_range(9, 5, 9));
    EXPECT_FALSE(int_chk_range(4, 5, 9) || int_chk_range(10, 5, 9) || int_chk_range(7, 9, 5));
}

TEST(Conf, NumbersAreTheDecimalPrefixHeldInside32Bits)
{
    const std::string nines(400, '9');
    // clang-format off
    const std::pair<std::string, std::int32_t> cases[] = {
        {"12abc", 12}, {"abc", 0}, {"", 0}, {" \t-7 8", -7}, {"+3", 3}, {"- 3", 0}, {"%n%s%s", 0},
        {"2147483648", INT32_MAX}, {"-2147483649", INT32_MIN}, {nines, INT32_MAX},
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

TEST(Conf, EveryFieldHasItsKeyAndDefault)
{
    StoreFile store;
    EXPECT_TRUE(same_bytes(read_record(conf_getIvsCtrlConf), {0, 0, 1, 0, 1}));
    EXPECT_TRUE(
        same_bytes(read_record(conf_getTACtrlConf), {1, 1500, 40, 5, 50, 5, 100, 50, 30, 10, 10}));
    EXPECT_TRUE(same_bytes(read_record(conf_getDISCtrlConf), {0, 0, 0, 0, 32, 0, 0, 0}));
    EXPECT_TRUE(same_bytes(read_record(conf_getFDCtrlConf), {0, -1, 1, 120, 960, -1, -1, -1, -1}));

    store.write(
        lines("CameraTampering.T0.",
              {"dfAlarmMethod=101", "dfAlarmTime=7", "dfThreshold=103", "dfPixelRate=104",
               "dfAreaRate=105", "dfRepeatTh=106", "dfAlarmShape=107", "gcRegionSens=108",
               "gcAreaRate=109", "gcWaitTime=110", "gcAlarmShape=-111"}) +
        lines("VideoAnalytics.",
              {"DIS.Mf_cutf=-5", "DIS.DisValidCnt=6", "FD.AlmMtd=2", "FD.SizeChkMtd=3",
               "FD.FaceTotal=7", "FD.AngleMtd=8", "FD.Angle=9"}) +
        lines("FaceDetection.", {"MinDetectionSize=4", "MaxDetectionSize=5", "Sensitivity=6"}) +
        "Properties.FaceDetection.Flip=Enable\n");
    EXPECT_TRUE(same_bytes(read_record(conf_getTACtrlConf),
                           {101, 105, 103, 104, 105, 106, 107, 108, 109, 110, -111}));
    EXPECT_TRUE(same_bytes(read_record(conf_getDISCtrlConf), {0, 0, 0, 0, -5, 6, 0, 0}));
    EXPECT_TRUE(same_bytes(read_record(conf_getFDCtrlConf), {1, 2, 3, 4, 5, 6, 7, 8, 9}));

    // Flags: field k of a record is on in round r when bit r of k + 1 is set.
    for (unsigned round = 0; round < 3; ++round) {
        const auto on = [=](unsigned k) { return int((k + 1) >> round & 1); };
        const auto set = [&](const char *key, unsigned k) { return key + std::to_string(on(k)); };
        store.write(lines("EventDetection.", {set("CameraTampering=", 0), set("FaceDetection=", 1),
                                              set("MotionDetection=", 2), set("VumeruOD=", 4)}) +
                    set("ImageSource.I0.Sensor.DIS=", 3) + "\n" +
                    lines("VideoAnalytics.DIS.",
                          {set("Localmot_det=", 0), set("Illumch_det=", 1), set("Edge_det=", 2),
                           set("Motpow_det=", 3), set("Frdiff_det=", 4), set("Me_disable=", 5)}));
        EXPECT_TRUE(
            same_bytes(read_record(conf_getIvsCtrlConf), {on(0), on(1), on(2), on(3), on(4)}));
        EXPECT_TRUE(same_bytes(read_record(conf_getDISCtrlConf),
                               {on(0), on(1), on(2), on(3), 32, 0, on(4), on(5)}));
    }
}

TEST(Conf, FaceWindowsAreOrderedOrCleared)
{
    const StoreFile store(lines("FaceDetection.F29.", {"Left=8000", "Right=2000", "Top=500",
                                                       "Bottom=4500", "WindowType=Detected"}) +
                          "FaceDetection.F28.WindowType=detected\n");
    const auto &window = conf_getFDWindowConf;
    EXPECT_TRUE(same_bytes(read_record(window, 29), {1, 0, 2000, 500, 6000, 4000, 1}));
    EXPECT_TRUE(same_bytes(read_record(window, 28), {}));
}

TEST(Conf, ComparisonsSeeTheWholeRecordAndNoMore)
{
    const std::pair<RecordComparison *, std::size_t> cases[] = {{conf_compareOsdConfig, 8104},
                                                                {conf_compareRtspConfig, 12}};
    for (const auto &[compare, size] : cases) {
        std::string a(size + 1, 'x');
        std::string b = a;
        b[size] = 'y';
        EXPECT_EQ(compare(a.data(), b.data()), 0);
        b[size - 1] = 'y';
        EXPECT_NE(compare(a.data(), b.data()), 0);
    }
}

TEST(Sensor, IsFoundByNameModeAndStandard)
{
    const std::pair<const char *, SensorConfig> cases[] = {
        // detected type, result
        {"PAL", {"IMX122", "2 mega", 0, 0, 1920, 1080, 30}},
        {"ntsc", {"tw9910", "D1", 0, 1, 704, 480, 30}},
        {"pal", {"tw9910", "D1", 0, 0, 704, 576, 25}},
        {"", {"tw9910", "D1", 0, 1, 704, 480, 30}},
        {"x", {"ov5653", "1080x1920", 0, 1, 1080, 1920, 21}}};
    StoreFile store;
    for (const auto &[type, expected] : cases) {
        store.write(lines("", {std::string("Properties.ImageSource.Sensor=") + expected.sensor,
                               std::string("Properties.Image.ProfileMode=") + expected.profileMode,
                               std::string("ImageSource.I0.Video.DetectedType=") + type}));
        const auto conf = read_record(conf_getSensorConfig);
        EXPECT_EQ(conf_compareSensorConfig(&conf, &expected), 0) << expected.sensor << type;
    }
    const std::string unknown(2000, 's');
    store.write("Properties.ImageSource.Sensor=" + unknown);
    SensorConfig conf = {"kept", "", 0, 0, 0, 0, 0};
    int result = 0;
    EXPECT_EQ(stderr_of([&] { result = conf_getSensorConfig(&conf); }),
              "Unknow sensor type [" + unknown.substr(0, 127) + "]!\n");
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(same_bytes(conf, {"kept", "", 0, 0, 0, 0, 0}));
}

TEST(Sensor, ComparisonIgnoresCaseAndAnyStandard)
{
    const SensorConfig conf = {"s", "m", 1, 1, 2, 3, 4};
    const std::pair<SensorConfig, int> cases[] = {
        {{"S", "M", 0, 1, 2, 3, 4}, 0},  {{"t", "a", 1, 1, 2, 3, 4}, -1},
        {{"s", "a", 1, 1, 2, 3, 4}, 1},  {{"s", "m", 1, 0, 2, 3, 4}, -1},
        {{"s", "m", 1, 1, 0, 3, 4}, -1}, {{"s", "m", 1, 1, 2, 0, 4}, -1},
        {{"s", "m", 1, 1, 2, 3, 0}, -1}};
    for (const auto &[other, sign] : cases) {
        const int result = conf_compareSensorConfig(&conf, &other);
        EXPECT_EQ((result > 0) - (result < 0), sign);
    }
}

using Size = std::pair<std::int32_t, std::int32_t>;

TEST(Sensor, ResolutionTextsAreSizesOrTheSensorsNames)
{
    const std::string nines(400, '9');
    const struct {
        const char *sensor, *mode;
        std::int32_t any, ntsc;
        std::string text;
        Size size;
    } cases[] = {{"imx140", "1080P WDR", 1, 1, "qvga", {320, 180}},
                 {"IMX185", "1080p 50fps", 0, 1, "1080P", {1920, 1080}},
                 {"imx185", "1080P 50FPS", 0, 0, "1080p", {1080, 0}},
                 {"imx185", "1080P 50FPS", 1, 0, "qqvga", {160, 90}},
                 {"ov9712", "720P", 1, 1, "qvga", {0, 0}},
                 {"ov9712", "720P", 1, 1, " 1280x 720!", {1280, 720}},
                 {"ov9712", "720P", 1, 1, "-1x-1x", {-1, -1}},
                 {"ov9712", "720P", 1, 1, nines + "x-" + nines, {INT32_MAX, INT32_MIN}}};
    for (const auto &test : cases) {
        Size size{77, 77};
        const int result = conf_parseResolution(test.sensor, test.mode, test.any, test.ntsc,
                                                test.text.c_str(), &size.first, &size.second);
        EXPECT_EQ(size, test.size) << test.sensor << " " << test.text;
        EXPECT_EQ(result, test.size.first && test.size.second ? 0 : -1) << test.text;
    }
}

TEST(Sensor, GuessTakesTheNearestWidth)
{
    const std::vector<std::int32_t> usual = {3, 1600, 1200, 640, 480, 320, 240};
    const struct {
        std::vector<std::int32_t> list;
        const char *text;
        Size size;
    } cases[] = {{usual, "vga", {640, 480}},
                 {usual, "SXGA", {1600, 1200}},
                 {usual, "unknown", {320, 240}},
                 {usual, "1x2", {1, 2}},
                 {{2, 600, 1, 680, 2}, "vga", {600, 1}},
                 {{-1, 600, 1}, "vga", {600, 1}},
                 {{2, INT32_MAX, 1, INT32_MIN, 2}, "vga", {INT32_MAX, 1}}}; // both out of reach
    for (const auto &test : cases) {
        Size size;
        EXPECT_EQ(guess_resolution(test.list.data(), test.text, &size.first, &size.second), 0);
        EXPECT_EQ(size, test.size) << test.text;
    }
}

TEST(Sensor, FrameBufferCountCanBeOverridden)
{
    StoreFile store;
    const std::pair<const char *, int> cases[] = {{"", 6}, {"=0", 6}, {"=8", 8}};
    for (const auto &[setting, count] : cases) {
        store.write(std::string("MPoolMgr.BufferNum") + setting);
        FrameBufferConf conf;
        ASSERT_EQ(FrameBufferConf_Get("IMX185", &conf), 0);
        EXPECT_EQ(conf.bufferNum, count);
        EXPECT_TRUE(conf.sizes[0].width == 1920 && conf.sizes[1].height == 576);
    }
    FrameBufferConf untouched = {"kept", 1, {}};
    EXPECT_EQ(FrameBufferConf_Get("hm2055", &untouched), -1);
    EXPECT_STREQ(untouched.name, "kept");
}

} // namespace
