#include "conf/conf_analytics.h"
#include "conf/conf_fd.h"
#include "conf/conf_od.h"
#include "conf/conf_vmf.h"
#include "tests/support/capture.h"
#include "tests/support/store_file.h"

#include <algorithm>
#include <functional>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace
{

using namespace std::string_literals;

TEST(ObjectDetection, EveryFieldHasItsKeyAndDefault)
{
    StoreFile store;
    EXPECT_TRUE(same_bytes(read_record(conf_getODCtrlConf), {1, 2, 6, 5}));
    EXPECT_TRUE(same_bytes(read_record(conf_getODDoParamInitConf), {1, 72}));
    EXPECT_TRUE(same_bytes(read_record(conf_getODDoParamSetConf), {1, 25, 1920, 1080, 1, 1}));
    EXPECT_TRUE(same_bytes(read_record(conf_getODSoParamInitConf), {1, 72, {}}));
    EXPECT_TRUE(same_bytes(read_record(conf_getODSoParamSetConf), {1, 5, 160, 120, 1, 1}));

    store.write(lines("VideoAnalytics.OD.",
                      {"Resolution=0", "DiffImgNum=15", "DOParam.MaxObjNum=10",
                       "SOParam.MaxObjNum=11", "SOParam.MaxSizeX=21", "SOParam.MaxSizeY=22",
                       "SOParam.MinSizeX=12", "SOParam.MinSizeY=13"}) +
                lines("VMDWindow.", {"Response=4", "Sensitivity=99", "MaxDetectionSize=8x9",
                                     "MinDetectionSize=31x32"}) +
                "ObjectDetection.SODetectionTime=60\n");
    EXPECT_TRUE(same_bytes(read_record(conf_getODCtrlConf), {1, 0, 4, 15}));
    EXPECT_TRUE(same_bytes(read_record(conf_getODDoParamInitConf), {1, 10}));
    EXPECT_TRUE(same_bytes(read_record(conf_getODDoParamSetConf), {1, 99, 8, 9, 31, 32}));
    EXPECT_TRUE(same_bytes(read_record(conf_getODSoParamInitConf), {1, 11, {}}));
    EXPECT_TRUE(same_bytes(read_record(conf_getODSoParamSetConf), {1, 60, 21, 22, 12, 13}));
}

TEST(ObjectDetection, MaskWindowsBecomePolygons)
{
    const StoreFile store(
        lines("VMDWindow.NonDetect.V1.", {"Left=70", "Right=20", "Top=5", "Bottom=90"}) +
        lines("VMDWindow.Detect.V2.", {"Left=0", "Right=99", "Top=2", "Bottom=1"}));
    EXPECT_TRUE(same_bytes(read_record(conf_getODMaskConf, 1),
                           {1, 1, 4, {{20, 5}, {20, 90}, {70, 90}, {70, 5}}}));
    EXPECT_TRUE(same_bytes(read_record(conf_getODDetMaskConf, 2),
                           {1, 2, 4, {{0, 1}, {0, 2}, {99, 2}, {99, 1}}}));
}

TEST(ObjectDetection, MotionWindowsAndPrivacyMasksNeedAName)
{
    const StoreFile store(
        lines("Motion.M3.", {"Name=door", "WindowType=INCLUDE", "Left=90", "Right=20", "Top=7",
                             "Bottom=10", "ObjectSize=15", "Sensitivity=80"}) +
        lines("Motion.M4.", {"Name=x", "WindowType=exclude", "Left=-2147483648", "Right=2147483647",
                             "Bottom=-1"}) +
        lines("Motion.M5.", {"Left=5", "Name="}) +
        lines("PrivacyMask.M0.", {"Name=pool", "Left=1", "Right=2", "Top=3", "Bottom=-4"}) +
        lines("PrivacyMask.M2.", {"Level=6", "Name=" + std::string(2000, 'n')}));
    PrivacyMaskConfig cut = {1, "", 100, 100, 100, 100, 6, 2};
    std::fill_n(cut.name, 63, 'n');
    const auto &motion = conf_getMotionConfig;
    const auto &mask = conf_getPrivacyMaskConfig;
    EXPECT_TRUE(same_bytes(read_record(motion, 3), {1, 20, 7, 70, 3, 1, 15, 80, 3}));
    EXPECT_TRUE(same_bytes(read_record(motion, 4), {1, INT32_MIN, -1, -1, 1, 0, 0, 0, 4}));
    EXPECT_TRUE(same_bytes(read_record(motion, 5), {0, 0, 0, 0, 0, 0, 0, 0, 5}));
    EXPECT_TRUE(same_bytes(read_record(mask, 0), {1, "pool", 1, 2, 3, -4, 100, 0}));
    EXPECT_TRUE(same_bytes(read_record(mask, 1), {0, "", 0, 0, 0, 0, 0, 1}));
    EXPECT_TRUE(same_bytes(read_record(mask, 2), cut));
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
    const std::string so = "VideoAnalytics.OD.SOParam.";
    const std::string combo = "VideoAnalytics.OD.VmfParam.ComboFilter.";
    const auto area = [] { return read_record(conf_getObjectDetectionConf, 0).valid; };
    const auto line = [] { return read_record(conf_getCrossLineConf, 0).valid; };
    const auto nd_area = [] { return read_record(conf_getODVmfParamConf).ndAreaNum; };
    const auto combined = [] { return read_record(conf_getODVmfParamConf).comboValid; };
    std::vector<Range> ranges = {
        {"VideoAnalytics.OD.Resolution=#", 0, 2, valid<conf_getODCtrlConf>},
        {"VMDWindow.Response=#", 1, 6, valid<conf_getODCtrlConf>},
        {"VideoAnalytics.OD.DiffImgNum=#", 1, 15, valid<conf_getODCtrlConf>},
        {"VideoAnalytics.OD.DOParam.MaxObjNum=#", 1, 72, valid<conf_getODDoParamInitConf>},
        {"VMDWindow.Sensitivity=#", 0, 255, valid<conf_getODDoParamSetConf>},
        {"VMDWindow.MinDetectionSize=#x9", 1, 4000, valid<conf_getODDoParamSetConf>},
        {"VMDWindow.MinDetectionSize=9x#", 1, 4000, valid<conf_getODDoParamSetConf>},
        {"VMDWindow.MaxDetectionSize=#x9", 1, 4000, valid<conf_getODDoParamSetConf>},
        {"VMDWindow.MaxDetectionSize=9x#", 1, 4000, valid<conf_getODDoParamSetConf>},
        {so + "MaxObjNum=#", 1, 72, valid<conf_getODSoParamInitConf>},
        {"ObjectDetection.SODetectionTime=#", 5, 86400, valid<conf_getODSoParamSetConf>},
        {so + "MaxSizeX=#", 2, 160, valid<conf_getODSoParamSetConf>},
        {so + "MaxSizeY=#", 2, 120, valid<conf_getODSoParamSetConf>},
        {so + "MaxSizeX=50\n" + so + "MinSizeX=#", 1, 50, valid<conf_getODSoParamSetConf>},
        {so + "MaxSizeY=60\n" + so + "MinSizeY=#", 1, 60, valid<conf_getODSoParamSetConf>},
        {combo + "Interval=1,2\n" + combo + "FilterID=0,1,#", 2, 2, combined},
        {combo + "FilterID=2,0\n" + combo + "Interval=#", 0, 600000, combined}};
    const Range windows[] = {{"VMDWindow.NonDetect.V0.", 0, 9999, valid<conf_getODMaskConf, 0>},
                             {"VMDWindow.Detect.V0.", 0, 9999, valid<conf_getODDetMaskConf, 0>},
                             {"FaceDetection.F0.", 0, 9999, valid<conf_getFDWindowConf, 0>},
                             {"ObjectDetection.O0.", 0, 9999, area},
                             {"VideoAnalytics.OD.VmfParam.NdArea0.", 0, 10000, nd_area}};
    for (const auto &[prefix, low, high, reader] : windows) {
        const std::string around = lines(prefix, {"Left=5", "Right=6", "Top=7", "Bottom=8"});
        for (const char *edge : {"Left=#", "Right=#", "Top=#", "Bottom=#"})
            ranges.push_back({around + prefix + edge, low, high, reader});
        // At 0 they enclose nothing.
        ranges.push_back({around + lines(prefix, {"Right=0", "Left=#"}), 1, high, reader});
        ranges.push_back({around + lines(prefix, {"Bottom=0", "Top=#"}), 1, high, reader});
    }
    for (const char *end : {"StartX=#", "StartY=#", "EndX=#", "EndY=#"})
        ranges.push_back({lines("CrossLine.C0.", {"StartX=5", "StartY=6", "EndX=7", "EndY=8", end}),
                          0, 9999, line});
    return ranges;
}

TEST(ObjectDetection, RangesIncludeBothEnds)
{
    StoreFile store;
    for (const Range &range : all_ranges()) {
        for (const int value : {range.low - 1, range.low, range.high, range.high + 1}) {
            std::string settings = range.settings;
            store.write(settings.replace(settings.find('#'), 1, std::to_string(value)));
            EXPECT_EQ(range.valid(), value >= range.low && value <= range.high) << settings;
        }
    }
    for (const char *size : {"64", "", "x1", "1x", "1X1", "-1x-1", "%dx%d", "1 x1"}) {
        store.write(lines("VMDWindow.MinDetectionSize=", {size}));
        EXPECT_EQ(valid<conf_getODDoParamSetConf>(), 0) << size;
    }
}

TEST(HostileSettings, LeaveRecordsValidOrCleared)
{
    std::string settings = lines("", {"CameraTampering.T0.dfAlarmTime=", "Motion.M0.Right=",
                                      "Motion.M0.Name=", "PrivacyMask.M0.Name="});
    for (const Range &range : all_ranges())
        settings += range.settings + "\n";
    const std::string digits(400, '9');
    StoreFile store;
    for (const std::string &value : {""s, digits, "-" + digits, "%n%s%d"s, "1x"s, "-1x-1"s,
                                     "1\0x2"s, std::string(2000, ',')}) {
        store.write(std::regex_replace(settings, std::regex("=.*"), "=" + value));
        for (const Range &range : all_ranges())
            range.valid(); // checks the record
        read_record(conf_getTACtrlConf);
        read_record(conf_getMotionConfig, 0);
        EXPECT_EQ(read_record(conf_getPrivacyMaskConfig, 0).name[63], '\0');
        EXPECT_EQ(read_record(conf_getODVmfParamConf).comboValid, 0);
    }
}

const ODVmfParamConf no_filter = {0, 0, 30, {}, 0, {}, 0, {0, -1, -1}, {}, {}};

std::string area_settings(int n, const std::string &type)
{
    return lines("ObjectDetection.O" + std::to_string(n) + ".",
                 {"Left=30", "Right=10", "Top=20", "Bottom=40", "Type=" + type, "SlowSpeed=2",
                  "FastSpeed=90", "MinInspectionSize=3x4", "MaxInspectionSize=500x600"});
}

std::string line_settings(int n)
{
    return lines("CrossLine.C" + std::to_string(n) + ".",
                 {"StartX=1", "StartY=2", "EndX=3", "EndY=4", "Direction=5", "SlowSpeed=6",
                  "FastSpeed=7", "MinInspectionSize=8x9", "MaxInspectionSize=10x11"});
}

TEST(Filters, AreLinesThenAreasWhileThereIsRoom)
{
    const ODVmfFilterConf line = {{}, 1, 2, {{1, 2}, {3, 4}}, 8, 10, 9, 11, 6, 7, 5};
    const ODVmfFilterConf point = {{}, 1, 2, {{9, 8}, {9, 8}}, 1, 1920, 1, 1080, 1, 100, -1};
    const ODVmfFilterConf area0 = {
        {}, 0, 4, {{10, 20}, {10, 40}, {30, 40}, {30, 20}}, 3, 500, 4, 600, 2, 90, 0};
    ODVmfFilterConf area1 = area0;
    area1.event = 3;
    ODVmfFilterConf area2 = area0;
    area2.event = 2;
    const std::pair<std::string, std::vector<ODVmfFilterConf>> cases[] = {
        {lines("CrossLine.C0.", {"StartX=9", "StartY=8", "EndX=9", "EndY=8"}), {point}},
        {line_settings(1) + area_settings(0, "1") + area_settings(2, "2"), {line, area1, area2}},
        {area_settings(0, "0") + area_settings(1, "5") + area_settings(2, "-1"),
         {area0, area0, area0}},
        {line_settings(2) + line_settings(0) + area_settings(1, "1") + area_settings(2, "2"),
         {line, line, area1}},
        {line_settings(3) + area_settings(3, "0") + area_settings(2, "2"), {area2}}};
    StoreFile store;
    for (const auto &[settings, filters] : cases) {
        store.write(settings);
        ODVmfParamConf expected = no_filter;
        expected.valid = 1;
        expected.filterNum = int(filters.size());
        std::ranges::copy(filters, expected.filters);
        EXPECT_TRUE(same_bytes(read_record(conf_getODVmfParamConf), expected)) << settings;
    }
}

TEST(Filters, LinesAreAnnounced)
{
    const StoreFile store(line_settings(1));
    CrossLineConf conf;
    EXPECT_EQ(stdout_of([&] { conf_getCrossLineConf(&conf, 1); }),
              "cross line start (1,2), end (3,4)\n");
}

TEST(Filters, NoDetectionAreasArePacked)
{
    const StoreFile store(
        lines("VideoAnalytics.OD.VmfParam.NdArea1.", {"Left=9", "Right=0", "Top=3", "Bottom=7"}) +
        lines("VideoAnalytics.OD.VmfParam.NdArea3.", {"Left=5", "Right=6", "Top=8", "Bottom=7"}) +
        "VideoAnalytics.OD.VmfParam.AlarmTimes=-12\n");
    ODVmfParamConf expected = no_filter;
    expected.alarmTime = -12;
    expected.ndAreaNum = 2;
    expected.ndAreas[0] = {4, {{0, 3}, {0, 7}, {9, 7}, {9, 3}}};
    expected.ndAreas[1] = {4, {{5, 7}, {5, 8}, {6, 8}, {6, 7}}};
    EXPECT_TRUE(same_bytes(read_record(conf_getODVmfParamConf), expected));
}

TEST(Filters, ComboListsAreReadFromTheLeft)
{
    const std::string nines(400, '9');
    const struct {
        std::string ids, intervals;
        std::int32_t valid, id[3], interval[2];
    } cases[] = {{"0,1", "5000", 1, {0, 1, -1}, {5000, 0}},
                 {"2,2", "0", 0, {2, 2, -1}, {0, 0}},
                 {"0,3,1", "7", 0, {0, -1, -1}, {7, 0}},
                 {"0,1,2,0", "10,20,30", 1, {0, 1, 2}, {10, 20}},
                 {" 1 ; , 2x,0", "1,2", 1, {1, 2, 0}, {1, 2}},
                 {"0,1", "1,2", 0, {0, 1, -1}, {1, 2}},
                 {std::string(100, ','), std::string(100, ','), 0, {0, 0, -1}, {0, 0}},
                 {nines + "," + nines, nines, 0, {-1, -1, -1}, {0, 0}}};
    StoreFile store;
    for (const auto &test : cases) {
        store.write(lines("VideoAnalytics.OD.VmfParam.ComboFilter.",
                          {"FilterID=" + test.ids, "Interval=" + test.intervals}));
        ODVmfParamConf expected = no_filter;
        expected.comboValid = test.valid;
        std::ranges::copy(test.id, expected.comboFilterIds);
        std::ranges::copy(test.interval, expected.comboIntervals);
        EXPECT_TRUE(same_bytes(read_record(conf_getODVmfParamConf), expected)) << test.ids;
    }
}

} // namespace
