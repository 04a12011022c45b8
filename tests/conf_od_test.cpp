#include "conf/conf_analytics.h"
#include "conf/conf_fd.h"
#include "conf/conf_od.h"
#include "conf/conf_vmf.h"
#include "tests/support/capture.h"
#include "tests/support/store_file.h"

#include <algorithm>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace
{

// Corners in the order of the records.
void expect_corners(std::int32_t pointNum, const ConfPoint (&points)[CONF_POLYGON_POINTS],
                    std::int32_t left, std::int32_t right, std::int32_t top, std::int32_t bottom)
{
    const ConfPoint expected[CONF_POLYGON_POINTS] = {
        {left, top}, {left, bottom}, {right, bottom}, {right, top}};
    EXPECT_EQ(pointNum, 4);
    EXPECT_TRUE(same_bytes(points, expected));
}

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
        lines("VMDWindow.NonDetect.V1.", {"Left=7000", "Right=2000", "Top=500", "Bottom=9000"}) +
        lines("VMDWindow.Detect.V2.", {"Left=0", "Right=9999", "Top=2", "Bottom=1"}));
    const auto mask = read_record(conf_getODMaskConf, 1);
    EXPECT_TRUE(mask.valid == 1 && mask.index == 1);
    expect_corners(mask.pointNum, mask.points, 2000, 7000, 500, 9000);
    const auto window = read_record(conf_getODDetMaskConf, 2);
    EXPECT_TRUE(window.valid == 1 && window.index == 2);
    expect_corners(window.pointNum, window.points, 0, 9999, 1, 2);
    EXPECT_TRUE(same_bytes(read_record(conf_getODMaskConf, 2), {}));
    EXPECT_TRUE(same_bytes(read_record(conf_getODDetMaskConf, 1), {}));
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
        lines("PrivacyMask.M1.", {"Level=5"}) +
        lines("PrivacyMask.M2.", {"Level=6", "Name=" + std::string(2000, 'n')}));
    EXPECT_TRUE(same_bytes(read_record(conf_getMotionConfig, 3), {1, 20, 7, 70, 3, 1, 15, 80, 3}));
    EXPECT_TRUE(
        same_bytes(read_record(conf_getMotionConfig, 4), {1, INT32_MIN, -1, -1, 1, 0, 0, 0, 4}));
    EXPECT_TRUE(same_bytes(read_record(conf_getMotionConfig, 5), {0, 0, 0, 0, 0, 0, 0, 0, 5}));
    EXPECT_TRUE(
        same_bytes(read_record(conf_getPrivacyMaskConfig, 0), {1, "pool", 1, 2, 3, -4, 100, 0}));
    EXPECT_TRUE(same_bytes(read_record(conf_getPrivacyMaskConfig, 1), {0, "", 0, 0, 0, 0, 0, 1}));
    PrivacyMaskConfig cut = {1, "", 100, 100, 100, 100, 6, 2};
    std::fill_n(cut.name, 63, 'n');
    EXPECT_TRUE(same_bytes(read_record(conf_getPrivacyMaskConfig, 2), cut));
}

// The flag of a record that is cleared when it is not valid.
template <auto Reader, auto Flag, auto... Index>
int checked()
{
    const auto record = read_record(Reader, Index...);
    EXPECT_TRUE(record.*Flag || same_bytes(record, {}));
    return record.*Flag;
}

const std::function<int()> ctrl = checked<conf_getODCtrlConf, &ODCtrlConf::valid>,
                           do_init = checked<conf_getODDoParamInitConf, &ODDoParamInitConf::valid>,
                           do_set = checked<conf_getODDoParamSetConf, &ODDoParamSetConf::valid>,
                           so_init = checked<conf_getODSoParamInitConf, &ODSoParamInitConf::valid>,
                           so_set = checked<conf_getODSoParamSetConf, &ODSoParamSetConf::valid>,
                           mask = checked<conf_getODMaskConf, &ODMaskConf::valid, 0>,
                           det_mask = checked<conf_getODDetMaskConf, &ODDetMaskConf::valid, 0>,
                           face = checked<conf_getFDWindowConf, &FDWindowConf::enabled, 0>,
                           area = [] { return read_record(conf_getObjectDetectionConf, 0).valid; },
                           line = [] { return read_record(conf_getCrossLineConf, 0).valid; },
                           nd_area = [] { return read_record(conf_getODVmfParamConf).ndAreaNum; },
                           combo = [] { return read_record(conf_getODVmfParamConf).comboValid; };

struct Range {
    std::string settings; // with a # in the place of the number
    int low, high;
    std::function<int()> valid;
};

struct Window {
    std::string prefix;
    int max;
    std::function<int()> valid;
};

const Window windows[] = {{"VMDWindow.NonDetect.V0.", 9999, mask},
                          {"VMDWindow.Detect.V0.", 9999, det_mask},
                          {"FaceDetection.F0.", 9999, face},
                          {"ObjectDetection.O0.", 9999, area},
                          {"VideoAnalytics.OD.VmfParam.NdArea0.", 10000, nd_area}};

std::vector<Range> all_ranges()
{
    const std::string so = "VideoAnalytics.OD.SOParam.";
    const std::string combo_list = "VideoAnalytics.OD.VmfParam.ComboFilter.";
    std::vector<Range> ranges = {
        {"VideoAnalytics.OD.Resolution=#", 0, 2, ctrl},
        {"VMDWindow.Response=#", 1, 6, ctrl},
        {"VideoAnalytics.OD.DiffImgNum=#", 1, 15, ctrl},
        {"VideoAnalytics.OD.DOParam.MaxObjNum=#", 1, 72, do_init},
        {"VMDWindow.Sensitivity=#", 0, 255, do_set},
        {"VMDWindow.MinDetectionSize=#x9", 1, 4000, do_set},
        {"VMDWindow.MinDetectionSize=9x#", 1, 4000, do_set},
        {"VMDWindow.MaxDetectionSize=#x9", 1, 4000, do_set},
        {"VMDWindow.MaxDetectionSize=9x#", 1, 4000, do_set},
        {so + "MaxObjNum=#", 1, 72, so_init},
        {"ObjectDetection.SODetectionTime=#", 5, 86400, so_set},
        {so + "MaxSizeX=#", 2, 160, so_set},
        {so + "MaxSizeY=#", 2, 120, so_set},
        {lines(so, {"MaxSizeX=50", "MinSizeX=#"}), 1, 50, so_set},
        {lines(so, {"MaxSizeY=60", "MinSizeY=#"}), 1, 60, so_set},
        {lines(combo_list, {"Interval=1,2", "FilterID=0,1,#"}), 2, 2, combo},
        {lines(combo_list, {"Interval=#", "FilterID=2,0"}), 0, 600000, combo}};
    for (const auto &[prefix, max, valid] : windows) {
        for (const char *edge : {"Left=#", "Right=#", "Top=#", "Bottom=#"})
            ranges.push_back(
                {lines(prefix, {"Left=5", "Right=6", "Top=7", "Bottom=8", edge}), 0, max, valid});
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
    for (const auto &[prefix, max, valid] : windows) { // nothing enclosed
        store.write(lines(prefix, {"Left=5", "Right=5", "Top=7", "Bottom=8"}));
        EXPECT_EQ(valid(), 0) << prefix;
        store.write(lines(prefix, {"Left=5", "Right=6", "Top=7", "Bottom=7"}));
        EXPECT_EQ(valid(), 0) << prefix;
    }
    for (const char *size : {"64", "", "x1", "1x", "1X1", "-1x-1", "%dx%d", "1 x1"}) {
        store.write(lines("VMDWindow.MinDetectionSize=", {size}));
        EXPECT_EQ(do_set(), 0) << size;
    }
}

TEST(Filters, SourcesKeepTheirLimitsEvenWhenInvalid)
{
    const std::initializer_list<std::string> bad = {"SlowSpeed=-3", "MinInspectionSize=9", "Type=1",
                                                    "MaxInspectionSize=x", "Direction=2"};
    const StoreFile store(lines("ObjectDetection.O2.", bad) + lines("CrossLine.C2.", bad));
    EXPECT_TRUE(same_bytes(read_record(conf_getObjectDetectionConf, 2),
                           {0, 0, {}, 0, -3, 100, 1, 1, 1920, 1080}));
    EXPECT_TRUE(same_bytes(read_record(conf_getCrossLineConf, 2),
                           {0, 0, {}, 0, -3, 100, 1, 1, 1920, 1080}));
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
    const ODVmfFilterConf line_filter = {{}, 1, 2, {{1, 2}, {3, 4}}, 8, 10, 9, 11, 6, 7, 5};
    const auto area_filter = [](std::int32_t event) {
        return ODVmfFilterConf{
            {}, event, 4, {{10, 20}, {10, 40}, {30, 40}, {30, 20}}, 3, 500, 4, 600, 2, 90, 0};
    };
    const std::pair<std::string, std::vector<ODVmfFilterConf>> cases[] = {
        {"", {}},
        {line_settings(1) + area_settings(0, "1") + area_settings(2, "2"),
         {line_filter, area_filter(3), area_filter(2)}},
        {area_settings(0, "0") + area_settings(1, "5") + area_settings(2, "-1"),
         {area_filter(0), area_filter(0), area_filter(0)}},
        {line_settings(0) + line_settings(1) + line_settings(2) + area_settings(0, "1"),
         {line_filter, line_filter, line_filter}},
        {line_settings(2) + line_settings(0) + area_settings(1, "1") + area_settings(2, "2"),
         {line_filter, line_filter, area_filter(3)}},
        {line_settings(3) + area_settings(3, "0") + area_settings(2, "2"), {area_filter(2)}}};
    StoreFile store;
    for (const auto &[settings, filters] : cases) {
        store.write(settings);
        ODVmfParamConf expected = no_filter;
        expected.valid = !filters.empty();
        expected.filterNum = int(filters.size());
        std::ranges::copy(filters, expected.filters);
        EXPECT_TRUE(same_bytes(read_record(conf_getODVmfParamConf), expected)) << settings;
    }
}

TEST(Filters, ALineMayBeAPointAndIsAnnounced)
{
    const StoreFile store(
        lines("CrossLine.C0.", {"StartX=9", "StartY=8", "EndX=9", "EndY=8"}) +
        lines("CrossLine.C1.", {"StartX=0", "StartY=9999", "EndX=10000", "EndY=1"}));
    ODVmfParamConf conf;
    EXPECT_EQ(stdout_of([&] { conf_getODVmfParamConf(&conf); }),
              "cross line start (9,8), end (9,8)\n");
    ODVmfFilterConf filter = {{}, 1, 2, {{9, 8}, {9, 8}}, 1, 1920, 1, 1080, 1, 100, -1};
    EXPECT_TRUE(same_bytes(conf.filters[0], filter));

    const CrossLineConf invalid = {0, 2, {{1, 1}}, 1, 1, 1, 1, 1, 1, 1};
    EXPECT_EQ(conf_convCrossLineConf2ODVmfFilterConf(&filter, &invalid), 0);
    EXPECT_TRUE(same_bytes(filter, {}));
}

TEST(Filters, NoDetectionAreasArePacked)
{
    const StoreFile store(lines("VideoAnalytics.OD.VmfParam.",
                                {"NdArea1.Left=10000", "NdArea1.Right=0", "NdArea1.Top=3",
                                 "NdArea1.Bottom=10000", "NdArea3.Left=5", "NdArea3.Right=6",
                                 "NdArea3.Top=8", "NdArea3.Bottom=7", "AlarmTimes=-12"}));
    const auto conf = read_record(conf_getODVmfParamConf);
    EXPECT_EQ(conf.ndAreaNum, 2);
    EXPECT_EQ(conf.alarmTime, -12);
    expect_corners(conf.ndAreas[0].pointNum, conf.ndAreas[0].points, 0, 10000, 3, 10000);
    expect_corners(conf.ndAreas[1].pointNum, conf.ndAreas[1].points, 5, 6, 7, 8);
    EXPECT_TRUE(same_bytes(conf.ndAreas[2], {}) && same_bytes(conf.ndAreas[3], {}));
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
                 {"1,", "9", 1, {1, 0, -1}, {9, 0}},
                 {" 1 ; , 2x,0", "1,2", 1, {1, 2, 0}, {1, 2}},
                 {"0,1,2", "1,600001", 0, {0, 1, 2}, {1, 0}},
                 {"0,1,2", "1", 0, {0, 1, 2}, {1, 0}},
                 {"0,1", "1,2", 0, {0, 1, -1}, {1, 2}},
                 {std::string(100, ','), std::string(100, ','), 0, {0, 0, -1}, {0, 0}},
                 {nines + "," + nines, nines, 0, {-1, -1, -1}, {0, 0}},
                 {"1,0," + std::string(2000, '0'), "1,2," + nines, 0, {1, 0, 0}, {1, 2}},
                 {"%n,%s", "%s%n", 0, {0, 0, -1}, {0, 0}}};
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

// Every kind of key holds the same hostile text.
TEST(HostileSettings, LeaveRecordsValidOrCleared)
{
    std::string settings = lines("", {"CameraTampering.T0.dfAlarmTime=#", "Motion.M0.Right=#",
                                      "Motion.M0.Name=#", "PrivacyMask.M0.Name=#"});
    for (const Range &range : all_ranges())
        settings += range.settings + "\n";
    const std::string digits(400, '9');
    const std::string nul("1\0x2", 4);
    StoreFile store;
    std::string rest;
    for (const std::string &value : {std::string(), digits, "-" + digits, std::string("%n%s%d"),
                                     std::string("1x"), std::string("x1"), std::string("-1x-1"),
                                     std::string(100, ','), nul, std::string(2000, 'z')}) {
        std::string content;
        std::istringstream keys(settings);
        for (std::string key; std::getline(std::getline(keys, key, '='), rest, '\n');)
            content.append(key).append("=").append(value).append("\n");
        store.write(content);
        for (const auto &valid : {ctrl, do_init, do_set, so_init, so_set, mask, det_mask, face})
            valid();
        read_record(conf_getTACtrlConf);
        read_record(conf_getMotionConfig, 0);
        EXPECT_EQ(read_record(conf_getPrivacyMaskConfig, 0).name[63], '\0');
        const auto conf = read_record(conf_getODVmfParamConf);
        EXPECT_TRUE(conf.ndAreaNum == 0 && conf.comboValid == 0);
        EXPECT_EQ(conf.filterNum, line()) << "areas are invalid; a line may be a point";
    }
}

} // namespace
