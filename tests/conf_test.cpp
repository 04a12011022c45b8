#include "conf/conf.h"
#include "conf/conf_analytics.h"
#include "conf/conf_catalogue.h"
#include "conf/conf_fd.h"
#include "conf/conf_od.h"
#include "conf/conf_sensor.h"
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

TEST(Conf, ComparisonsSeeTheWholeRecordAndNoMore)
{
    // clang-format off
    const std::pair<int (*)(const void *, const void *), std::size_t> cases[] = {
        {conf_compareDynamicParamConf, 8}, {conf_compareNetworkQosConf, 20},
        {conf_compareImageRotateConf, 12}, {conf_compareAccountConf, 2048},
        {conf_compareGb28181, 1036}, {conf_compareAudioExConf, 8}, {conf_compareH264ConfEx, 24},
        {conf_compareEPTZConf, 20}, {conf_comparePrivacyMaskConfigEx, 124},
        {conf_compareDenoiseConf, 20}, {conf_compareNetworkConf, 128}, {conf_compareAoiConf, 60},
        {conf_compareCameraTamperingConf, 8}, {conf_compareSystemPropertiesConf, 48},
        {conf_compareContinuousRecorderConf, 284}, {conf_compareEventRecorderConf, 288},
        {conf_compareRecorderConf, 280}, {conf_compareMulticastConf, 88},
        {conf_compareVideoProperties, 308}, {conf_compareAudioProperties, 32},
        {conf_compareRtspConfig, 12}, {conf_compareProfileAudioConfig, 12},
        {conf_compareTvOutConf, 12}, {conf_compareOsdConfig, 8104},
        {conf_compareOverlayConfig, 564}, {conf_compareProfileVideoConfig, 348}};
    // clang-format on
    for (const auto &[compare, size] : cases) {
        std::string a(size + 1, 'x');
        std::string b = a;
        b[size] = 'y';
        EXPECT_EQ(compare(a.data(), b.data()), 0) << size;
        b[size - 1] = 'y';
        EXPECT_NE(compare(a.data(), b.data()), 0) << size;
    }
}

TEST(Sensor, IsFoundByNameModeAndStandard)
{
    StoreFile store;
    for (const auto &[type, expected] :
         {std::pair("PAL", SensorConfig{"IMX122", "2 mega", 0, 0, 1920, 1080, 30}),
          std::pair("pal", SensorConfig{"tw9910", "D1", 0, 0, 704, 576, 25}),
          std::pair("", SensorConfig{"tw9910", "D1", 0, 1, 704, 480, 30})}) {
        store.write(std::string("Properties.ImageSource.Sensor=") + expected.sensor +
                    "\nProperties.Image.ProfileMode=" + expected.profileMode +
                    "\nImageSource.I0.Video.DetectedType=" + type);
        const auto conf = read_record(conf_getSensorConfig);
        EXPECT_EQ(conf_compareSensorConfig(&conf, &expected), 0) << expected.sensor << type;
    }
    store.write("Properties.ImageSource.Sensor=" + std::string(2000, 's'));
    SensorConfig conf = {"kept", "", 0, 0, 0, 0, 0};
    EXPECT_EQ(stderr_of([&] { EXPECT_EQ(conf_getSensorConfig(&conf), -1); }),
              "Unknow sensor type [" + std::string(127, 's') + "]!\n");
    EXPECT_STREQ(conf.sensor, "kept");
}

TEST(Sensor, OffersResolutionsAndFrameBuffers)
{
    ConfSize size;
    const auto parse = [&](const char *mode, int any, int ntsc, const char *text) {
        return conf_parseResolution("IMX185", mode, any, ntsc, text, &size.width, &size.height);
    };
    EXPECT_TRUE(parse("1080p 50fps", 0, 1, "QVGA") == 0 && size.height == 180);
    EXPECT_TRUE(parse("1080P 50FPS", 1, 0, "qqvga") == 0 && size.height == 90);
    EXPECT_TRUE(parse("1080P 50FPS", 0, 0, "qqvga") == -1 && size.width == 0);
    EXPECT_TRUE(parse("720P", 1, 1, " 1280x 720!") == 0 && size.height == 720);
    EXPECT_TRUE(parse("720P", 1, 1, "0x720") == -1 && size.height == 720);

    std::int32_t list[] = {3, 1600, 1200, 640, 480, 320, 240};
    const auto guess = [&](const char *text) {
        EXPECT_EQ(guess_resolution(list, text, &size.width, &size.height), 0);
        return size.height;
    };
    EXPECT_EQ(guess("vga"), 480);
    EXPECT_EQ(guess("SXGA"), 1200);
    EXPECT_EQ(guess("unknown"), 240);
    EXPECT_EQ(guess("1x2"), 2);
    list[0] = -1;
    EXPECT_EQ(guess("vga"), 1200);

    FrameBufferConf conf = {};
    for (const std::int32_t count : {0, 8}) {
        const StoreFile store("MPoolMgr.BufferNum=" + std::to_string(count));
        EXPECT_EQ(FrameBufferConf_Get("IMX185", &conf), 0);
        EXPECT_EQ(conf.bufferNum, count ? count : 6);
    }
    EXPECT_EQ(FrameBufferConf_Get("hm2055", &conf), -1);
}

} // namespace
