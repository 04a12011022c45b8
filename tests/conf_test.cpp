#include "conf/conf.h"
#include "conf/conf_analytics.h"
#include "conf/conf_catalogue.h"
#include "conf/conf_fd.h"
#include "conf/conf_sensor.h"
#include "conf/sensor_tables.h"
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
    const std::pair<std::string, std::int32_t> cases[] = {
        {"12abc", 12},
        {"abc", 0},
        {"", 0},
        {" \t-7 8", -7},
        {"+3", 3},
        {"- 3", 0},
        {"%n%s%s", 0},
        {"2147483648", INT32_MAX},
        {"-2147483649", INT32_MIN},
        {std::string(400, '9'), INT32_MAX},
        {"-" + std::string(400, '9'), INT32_MIN},
        {std::string(1022, ' ') + "56", 5}}; // cut
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
    StoreFile store(lines("FaceDetection.F29.", {"Left=8000", "Right=2000", "Top=500",
                                                 "Bottom=4500", "WindowType=Detected"}));
    EXPECT_TRUE(
        same_bytes(read_record(conf_getFDWindowConf, 29), {1, 0, 2000, 500, 6000, 4000, 1}));
    store.write(lines("FaceDetection.F29.", {"Left=0", "Right=9999", "Top=9999", "Bottom=0"}));
    EXPECT_TRUE(same_bytes(read_record(conf_getFDWindowConf, 29), {1, 0, 0, 0, 9999, 9999, 0}));
    store.write("FaceDetection.F29.WindowType=detected\n");
    EXPECT_TRUE(same_bytes(read_record(conf_getFDWindowConf, 29), {}));
}

TEST(Conf, ComparisonsSeeTheWholeRecordAndNoMore)
{
    const auto check = [](auto &compare, std::size_t size) {
        std::string a(size + 1, 'x');
        std::string b = a;
        b[size] = 'y';
        EXPECT_EQ(compare(a.data(), b.data()), 0);
        b[size - 1] = 'y';
        EXPECT_NE(compare(a.data(), b.data()), 0);
    };
    check(conf_compareOsdConfig, 8104);
    check(conf_compareRtspConfig, 12);
    const FDCtrlConf conf = {};
    FDCtrlConf changed = {};
    changed.angle = 1 << 24;
    EXPECT_NE(conf_compareFDCtrlConf(&conf, &changed), 0);
    EXPECT_EQ(conf_compareFDCtrlConf(&changed, &changed), 0);
}

std::string source(const std::string &sensor, const std::string &mode, const std::string &type)
{
    return "Properties.ImageSource.Sensor=" + sensor + "\nProperties.Image.ProfileMode=" + mode +
           "\nImageSource.I0.Video.DetectedType=" + type + "\n";
}

TEST(Sensor, IsFoundByNameModeAndStandard)
{
    const std::pair<const char *, SensorConfig> cases[] = {
        // detected type, result
        {"PAL", {"IMX122", "2 mega", 0, 0, 1920, 1080, 30}},
        {"ntsc", {"tw9910", "D1", 0, 1, 704, 480, 30}},
        {"pal", {"tw9910", "D1", 0, 0, 704, 576, 25}},
        {"", {"tw9910", "D1", 0, 1, 704, 480, 30}},
        {"ntsc", {"tw2865", "4cif", 0, 1, 704, 576, 25}},
        {"x", {"ov5653", "1080x1920", 0, 1, 1080, 1920, 21}},
        {"x", {"imx238", "720p", 0, 1, 1280, 720, 30}}};
    StoreFile store;
    for (const auto &[type, expected] : cases) {
        store.write(source(expected.sensor, expected.profileMode, type));
        const auto conf = read_record(conf_getSensorConfig);
        EXPECT_EQ(conf_compareSensorConfig(&conf, &expected), 0) << expected.sensor << type;
    }
    store.write("Properties.ImageSource.Sensor=ov2715\n");
    EXPECT_EQ(read_record(conf_getSensorConfig).width, 1920) << "mode 2 MEGA by default";

    for (const std::string &sensor :
         {std::string(), std::string("ov2715"), std::string(2000, 's')}) {
        store.write(source(sensor, "3 MEGA", "ntsc"));
        SensorConfig conf = {"kept", "", 0, 0, 0, 0, 0};
        int result = 0;
        EXPECT_EQ(stderr_of([&] { result = conf_getSensorConfig(&conf); }),
                  "Unknow sensor type [" + sensor.substr(0, 127) + "]!\n");
        EXPECT_EQ(result, -1);
        EXPECT_TRUE(same_bytes(conf, {"kept", "", 0, 0, 0, 0, 0}));
    }
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

// Runs a lookup and checks that its result agrees with the size it stores.
template <class Lookup>
std::pair<int, int> looked_up(Lookup lookup)
{
    std::int32_t width = 77;
    std::int32_t height = 77;
    const int result = lookup(&width, &height);
    EXPECT_EQ(result, width && height ? 0 : -1);
    return {width, height};
}

TEST(Sensor, ResolutionTextsAreSizesOrTheSensorsNames)
{
    const std::string nines(400, '9');
    const struct {
        const char *sensor, *mode;
        std::int32_t any, ntsc;
        std::string text;
        std::pair<int, int> size;
    } cases[] = {{"imx140", "1080P WDR", 1, 1, "qvga", {320, 180}},
                 {"IMX185", "1080p 50fps", 0, 1, "1080P", {1920, 1080}},
                 {"imx185", "1080P 50FPS", 0, 0, "1080p", {1080, 0}},
                 {"imx185", "1080P 50FPS", 1, 0, "qqvga", {160, 90}},
                 {"icx692", "720P", 1, 1, "vga", {640, 480}},
                 {"imx122", "720P", 1, 1, "720p", {720, 0}},
                 {"ov9712", "720P", 1, 1, "qvga", {0, 0}},
                 {"ov9712", "720P", 1, 1, " 1280x 720!", {1280, 720}},
                 {"ov9712", "720P", 1, 1, "0x720", {0, 720}},
                 {"ov9712", "720P", 1, 1, "-1x-1x", {-1, -1}},
                 {"ov9712", "720P", 1, 1, "4 x3", {4, 0}},
                 {"ov9712", "720P", 1, 1, "x1", {0, 0}},
                 {"ov9712", "720P", 1, 1, nines + "x-" + nines, {INT32_MAX, INT32_MIN}}};
    for (const auto &test : cases)
        EXPECT_EQ(looked_up([&](auto *width, auto *height) {
                      return conf_parseResolution(test.sensor, test.mode, test.any, test.ntsc,
                                                  test.text.c_str(), width, height);
                  }),
                  test.size)
            << test.sensor << " " << test.text;
}

TEST(Sensor, GuessTakesTheNearestWidth)
{
    const std::vector<std::int32_t> usual = {3, 1600, 1200, 640, 480, 320, 240};
    const struct {
        std::vector<std::int32_t> list;
        const char *text;
        std::pair<int, int> size;
    } cases[] = {{usual, "vga", {640, 480}},
                 {usual, "SXGA", {1600, 1200}},
                 {usual, "unknown", {320, 240}},
                 {usual, "1x2", {1, 2}},
                 {usual, "5x0", {5, 0}},
                 {{2, 600, 1, 680, 2}, "vga", {600, 1}},
                 {{0, 600, 1}, "vga", {600, 1}},
                 {{-1, 600, 0}, "vga", {600, 0}},
                 {{2, 30000, 1, 11000, 2}, "vga", {30000, 1}}, // both out of reach
                 {{2, INT32_MAX, 1, INT32_MIN, 2}, "vga", {INT32_MAX, 1}}};
    for (const auto &test : cases)
        EXPECT_EQ(looked_up([&](auto *width, auto *height) {
                      return guess_resolution(test.list.data(), test.text, width, height);
                  }),
                  test.size)
            << test.text;
}

TEST(Sensor, FrameBufferCountCanBeOverridden)
{
    StoreFile store;
    const std::pair<const char *, int> cases[] = {{"", 6}, {"=0", 6}, {"=1", 1}, {"=8", 8}};
    for (const auto &[setting, count] : cases) {
        store.write(std::string("MPoolMgr.BufferNum") + setting);
        FrameBufferConf conf;
        ASSERT_EQ(FrameBufferConf_Get("IMX185", &conf), 0);
        EXPECT_STREQ(conf.name, "imx185");
        EXPECT_EQ(conf.bufferNum, count);
        const ConfSize sizes[CONF_FRAME_BUFFER_SIZES] = {{1920, 1080}, {720, 576}};
        EXPECT_TRUE(same_bytes(conf.sizes, sizes));
    }
    FrameBufferConf untouched = {"kept", 1, {}};
    EXPECT_EQ(FrameBufferConf_Get("hm2055", &untouched), -1);
    EXPECT_STREQ(untouched.name, "kept");
}

TEST(Sensor, TablesAddUp)
{
    SensorConfig sum = {};
    std::size_t letters = 0;
    for (const SensorConfig *row = g_sensorConfigs; row->width; ++row) {
        sum.anyStandard += row->anyStandard;
        sum.ntsc += row->ntsc;
        sum.width += row->width;
        sum.height += row->height;
        sum.fps += row->fps;
        letters += std::strlen(row->sensor) + std::strlen(row->profileMode);
    }
    EXPECT_TRUE(same_bytes(sum, {"", "", 69, 69, 118272, 74752, 2193}));
    EXPECT_EQ(letters, 1034u);

    FrameBufferConf total = {};
    for (const FrameBufferConf *row = gatFrameBufferConf; row->name; ++row) {
        total.bufferNum += row->bufferNum;
        for (const ConfSize size : row->sizes) {
            total.sizes[0].width += size.width;
            total.sizes[0].height += size.height;
        }
    }
    EXPECT_EQ(total.bufferNum, 111);
    EXPECT_TRUE(same_bytes(total.sizes[0], {64940, 42524}));
    EXPECT_TRUE(g_sensorConfigs[70].width && !g_sensorConfigs[71].width);
    EXPECT_TRUE(gatFrameBufferConf[26].name && !gatFrameBufferConf[27].name);
    EXPECT_TRUE(sensor_resolution_table[19].sensor && !sensor_resolution_table[20].sensor);
    EXPECT_TRUE(all_resolution[12].name && !all_resolution[13].name);
}

} // namespace
