#include "conf/conf.h"
#include "conf/conf_analytics.h"
#include "conf/conf_catalogue.h"
#include "conf/conf_fd.h"
#include "conf/conf_od.h"
#include "conf/conf_sensor.h"
#include "conf/conf_vmf.h"
#include "tests/support/capture.h"
#include "tests/support/store_file.h"

#include <sstream>
#include <string>
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
                store.write(prefix + key + "=" + std::to_string(value));
                expected[field] = key == "dfAlarmTime" ? 15 * value : value;
                EXPECT_EQ(read(), expected) << key;
            }
        }
    }
}

template <class Record>
void expect_comparison(int (*compare)(const Record *, const Record *))
{
    Record a{};
    Record b{};
    EXPECT_EQ(compare(&a, &b), 0);
    reinterpret_cast<char *>(&b)[sizeof b - 1] = 1;
    EXPECT_NE(compare(&a, &b), 0);
}

TEST(Conf, ComparisonsSeeTheWholeRecord)
{
    expect_comparison(conf_compareIvsCtrlConf);
    expect_comparison(conf_compareDISCtrlConf);
    expect_comparison(conf_compareFDCtrlConf);
    expect_comparison(conf_compareODDetMaskConf);
    expect_comparison(conf_compareMotionConfig);
    expect_comparison(conf_comparePrivacyMaskConfig);
    expect_comparison(conf_compareODVmfFilterConf);
    std::string large(8104, 'x');
    std::string other = large + 'y';
    large += 'x';
    EXPECT_EQ(conf_compareOsdConfig(large.data(), other.data()), 0); // and no more than the record
}

TEST(Sensor, IsFoundByNameModeAndStandard)
{
    StoreFile store;
    const std::string key = "Properties.ImageSource.Sensor=";
    const std::string mode = "\nProperties.Image.ProfileMode=";
    const std::string type = "\nImageSource.I0.Video.DetectedType=";
    const std::pair<std::string, SensorConfig> cases[] = {
        {key + "IMX122" + type + "PAL",
         {"imx122", "2 MEGA", 0, 0, 1920, 1080, 30}}, // the default mode
        {key + "imx140" + mode + "1080p 25fps", {"imx140", "1080P 25FPS", 0, 1, 1920, 1080, 25}},
        {key + "tw9910" + mode + "D1" + type + "pal", {"tw9910", "d1", 0, 0, 704, 576, 25}},
        {key + "tw9910" + mode + "D1" + type, {"tw9910", "d1", 0, 1, 704, 480, 30}}};
    for (const auto &[settings, expected] : cases) {
        store.write(settings);
        const auto conf = read_record(conf_getSensorConfig);
        EXPECT_EQ(conf_compareSensorConfig(&conf, &expected), 0) << settings;
    }
    store.write(key + std::string(2000, 's'));
    SensorConfig conf = {"kept", "", 0, 0, 0, 0, 0};
    EXPECT_EQ(stderr_of([&] { EXPECT_EQ(conf_getSensorConfig(&conf), -1); }),
              "Unknow sensor type [" + std::string(127, 's') + "]!\n");
    EXPECT_STREQ(conf.sensor, "kept");
}

TEST(Sensor, OffersResolutionsAndFrameBuffers)
{
    ConfSize size;
    const auto parse = [&](int ntsc, const char *text) {
        return conf_parseResolution("IMX185", "1080p 50fps", 0, ntsc, text, &size.width,
                                    &size.height);
    };
    EXPECT_TRUE(parse(1, "QVGA") == 0 && size.height == 180);
    EXPECT_TRUE(parse(0, "QVGA") == -1 && size.width == 0);
    EXPECT_TRUE(parse(0, " 1280x 720!") == 0 && size.height == 720);
    const std::int32_t list[] = {4, 1600, 1200, 640, 480, 320, 240, 960, 540};
    const std::pair<const char *, int> guesses[] = {
        {"vga", 480}, {"SXGA", 1200}, {"unknown", 240}, {"1x2", 2}}; // 1280 is as far from 960
    for (const auto &[text, height] : guesses) {
        EXPECT_EQ(guess_resolution(list, text, &size.width, &size.height), 0);
        EXPECT_EQ(size.height, height) << text;
    }
    const StoreFile store("MPoolMgr.BufferNum=8");
    FrameBufferConf conf = {};
    EXPECT_TRUE(FrameBufferConf_Get("IMX185", &conf) == 0 && conf.bufferNum == 8);
    EXPECT_EQ(FrameBufferConf_Get("hm2055", &conf), -1);
}

} // namespace
