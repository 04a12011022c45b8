#include "platform/sim/sim.h"
#include "tests/support/capture.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <set>
#include <thread>

#include <gtest/gtest.h>

namespace
{

constexpr ne3_val_open_prm open_prm{1, 1, 0};
constexpr ne3_val_od_open_prm od_open_prm{4, 1, 0, 1};

using Call = std::function<int()>;
using Outcome = std::pair<int, int>; // result and errno

Outcome outcome(const Call &call)
{
    errno = 0;
    const int result = call();
    return {result, result == -1 ? errno : 0};
}

class SimTest : public testing::Test
{
protected:
    SimTest()
    {
        unsetenv("VA_SIM_SCENE");
        sim_reset();
    }

    std::string write_scene(const std::string &text) const
    {
        std::string path = files.file("scene");
        std::ofstream(path) << text;
        return path;
    }

    static void open_library()
    {
        EXPECT_EQ(0, ne3_val_init());
        EXPECT_EQ(0, ne3_val_open());
    }

    static void start_ta()
    {
        open_library();
        EXPECT_EQ(0, ne3_val_ta_open(&open_prm));
        EXPECT_EQ(0, ne3_val_ta_start());
    }

    TempDir files;
};

TEST_F(SimTest, RefusesCallsInTheWrongState)
{
    // Refused before their arguments are looked at, so these may be null.
    const Call memory = [] { return ne3_cl_cpu3_get_memory_info(nullptr); };
    const Call map = [] {
        vanaMemInfo info;
        return ne3_cl_cpu3_get_memory_info(&info);
    };
    const Call ta_open = [] { return ne3_val_ta_open(&open_prm); };
    const Call fd_open = [] { return ne3_val_fd_open(&open_prm); };
    const Call od_open = [] { return ne3_val_od_open_ex(&od_open_prm, 1); };
    const Call od_start = [] { return ne3_val_od_start(0); };
    const Call dis_open = ne3_val_dis_open;
    const Call ta_get = [] { return ne3_val_ta_get_ctrl_ex(nullptr, 1); };
    const Call ta_set = [] { return ne3_val_ta_set_ctrl_ex(nullptr, 1); };
    const Call dis_set = [] { return ne3_val_dis_set_ctrl(nullptr); };
    const Call fd_set = [] { return ne3_val_fd_set_ctrl(nullptr); };
    const Call od_set = [] { return ne3_val_od_set_ctrl(nullptr); };
    const Call od_areas = [] { return ne3_val_od_get_area_data_mem(nullptr, nullptr); };
    const Call ta_read = [] { return ne3_val_ta_get_data(1, nullptr); };
    const Call fd_read = [] { return ne3_val_fd_get_data(1, nullptr); };
    const Call od_read = [] { return ne3_val_od_get_data(1, nullptr); };
    const struct {
        std::vector<Call> steps; // each succeeds
        std::vector<Call> refused;
    } rows[] = {
        {{},
         {ne3_cl_sys_open_device, memory, ne3_cl_cpu3_xfer_complete, ne3_cl_cpu3_boot,
          ne3_cl_cpu3_xfer_cancel, ne3_cl_cpu3_shutdown, ne3_cl_sys_close_device,
          ne3_cl_library_exit, ne3_val_open, ne3_val_close, ne3_val_exit, ta_open, dis_open,
          fd_open, od_open, ne3_val_ta_stop, ne3_val_fd_close, ne3_val_od_cancel_data}},
        {{ne3_cl_library_init, ne3_cl_sys_open_device},
         {ne3_cl_library_init, ne3_cl_cpu3_xfer_complete, ne3_cl_library_exit}},
        {{map, map}, {ne3_cl_cpu3_boot, ne3_cl_cpu3_shutdown}},
        {{ne3_cl_cpu3_xfer_complete, ne3_cl_cpu3_xfer_cancel}, {ne3_cl_cpu3_boot}},
        {{ne3_cl_cpu3_xfer_complete, ne3_cl_cpu3_boot}, {memory, ne3_cl_cpu3_xfer_cancel}},
        {{ne3_cl_cpu3_shutdown, ne3_cl_cpu3_xfer_cancel, ne3_cl_sys_close_device,
          ne3_cl_library_exit},
         {ne3_cl_sys_open_device}},
        {{ne3_val_init, ne3_val_open},
         {ne3_val_init, ne3_val_exit, ne3_val_ta_start, od_start, ta_get, ta_set, dis_set, fd_set,
          od_set, od_areas}},
        {{ta_open, dis_open},
         {ta_open, dis_open, fd_read, od_read, ta_read, ne3_val_ta_stop, ne3_val_dis_stop}},
        {{ne3_val_ta_start}, {ne3_val_ta_start, ne3_val_ta_close}},
        {{ne3_val_ta_stop, ne3_val_close}, {ne3_val_ta_close, ne3_val_dis_start, ta_set}},
        {{ne3_val_exit}, {ne3_val_close}},
    };
    for (std::size_t row = 0; row < std::size(rows); ++row) {
        for (std::size_t i = 0; i < rows[row].steps.size(); ++i)
            EXPECT_EQ(Outcome(0, 0), outcome(rows[row].steps[i])) << row << ' ' << i;
        for (std::size_t i = 0; i < rows[row].refused.size(); ++i)
            EXPECT_EQ(Outcome(-1, EPERM), outcome(rows[row].refused[i])) << row << ' ' << i;
    }
}

TEST_F(SimTest, CancelEndsTheReadThatWaits)
{
    start_ta();
    EXPECT_EQ(Outcome(-1, EAGAIN), outcome(ne3_val_ta_cancel_data));
    Outcome ended;
    std::thread reader([&] {
        ne3_val_ta_result result;
        do
            ended = outcome([&] { return ne3_val_ta_get_data(1, &result); });
        while (ended.first == 1);
    });
    EXPECT_TRUE(wait_until([] { return ne3_val_ta_cancel_data() == 0; }));
    reader.join();
    EXPECT_EQ(Outcome(-1, NE3_VAL_ERR_CANCEL), ended);

    ne3_val_ta_result result{};
    EXPECT_EQ(1, ne3_val_ta_get_data(1, &result)); // it ended that read only
    EXPECT_EQ(Outcome(-1, EAGAIN), outcome(ne3_val_ta_cancel_data));
}

TEST_F(SimTest, PlannedFailuresTakeTheCallsPlace)
{
    start_ta();
    sim_fail("ne3_val_ta_get_data", 2, 77);
    sim_fail("ne3_val_ta_stop", 1, 78);
    sim_push_ta({{5}, 0});
    sim_push_ta({{6}, 0});
    ne3_val_ta_result result{};
    const Call read = [&] { return ne3_val_ta_get_data(1, &result); };
    EXPECT_EQ(Outcome(0, 0), outcome(read));
    EXPECT_EQ(Outcome(-1, 77), outcome(read));
    EXPECT_EQ(Outcome(0, 0), outcome(read));
    EXPECT_EQ(6, result.alarm[0]);
    EXPECT_EQ(Outcome(-1, 78), outcome(ne3_val_ta_stop));
    EXPECT_EQ(Outcome(1, 0), outcome(read)); // started still, and not in the log
    EXPECT_EQ(
        (std::vector<std::string>{"ne3_val_init", "ne3_val_open", "ne3_val_ta_open",
                                  "ne3_val_ta_start", "ne3_val_ta_get_data", "ne3_val_ta_get_data",
                                  "ne3_val_ta_get_data", "ne3_val_ta_stop"}),
        sim_calls());

    setenv("VA_SIM_SCENE", write_scene("fail ne3_cl_library_init 1 0x81e030c8\n").c_str(), 1);
    sim_reset();
    EXPECT_EQ(Outcome(-1, NE3_VAL_ERR_CANCEL), outcome(ne3_cl_library_init));
    EXPECT_EQ(Outcome(0, 0), outcome(ne3_cl_library_init));
}

TEST_F(SimTest, ReportsTheLinesOfASceneThatAreWrong)
{
    const std::string path = write_scene("frame 640 480 # good\n"
                                         "\n"
                                         "object 1 dynamic 10x from 1,1 to 2,2 between 0 9\n"
                                         "object 1 moving 10x10 from 1,1 to 2,2 between 0 9\n"
                                         "face 1 at 1,1 size 9x9 between 9 9\n"
                                         "every 0 ta 1 2 3 4\n"
                                         "at 5 ta 1 2 3\n"
                                         "period 10 20\n"
                                         "fail boot 1 5\n"
                                         "at 0 ta 1 0xffffffff -1 4\n");
    bool clean = true;
    const std::string report = stderr_of([&] { clean = sim_play_scene(path); });
    EXPECT_FALSE(clean);
    EXPECT_EQ(7, std::count(report.begin(), report.end(), '\n'));
    for (int line = 3; line <= 9; ++line) {
        const std::string start =
            "sim: " + path + ':' + std::to_string(line) + ": not understood: ";
        EXPECT_NE(std::string::npos, report.find(start)) << line;
    }
    start_ta();
    ne3_val_ta_result result{};
    EXPECT_EQ(0, ne3_val_ta_get_data(1, &result)); // the others count
    const std::uint32_t words[] = {1, 0xffffffff, 0xffffffff, 4};
    EXPECT_EQ(0, std::memcmp(words, result.alarm, sizeof words));
    EXPECT_EQ(1, ne3_val_ta_get_data(1, &result)); // and only once

    EXPECT_FALSE(sim_play_scene(files.file("missing")));
    EXPECT_TRUE(sim_play_scene(write_scene("frame 640 480\n")));
}

using Ids = std::set<std::uint32_t>;
using Seen = std::pair<Ids, std::uint32_t>; // objects and alarms of a result

constexpr ne3_val_od_polygon left_half{4, {{0, 0}, {0, 1080}, {960, 1080}, {960, 0}}};
constexpr ne3_val_od_masks left_mask{1, {left_half}};

class SimOdTest : public SimTest
{
protected:
    SimOdTest()
    {
        open_library();
        EXPECT_EQ(0, ne3_val_od_start(ne3_val_od_open_ex(&od_open_prm, 1)));
        std::uint16_t count = 0;
        EXPECT_EQ(0, ne3_val_od_get_area_data_mem(&count, &areas));
        EXPECT_EQ(7, count);
    }

    // Sets a control record with this one block.
    template <class Block>
    static void use(Block *ne3_val_od_ctrl::*member, const ne3_val_area_mem &area,
                    const Block &block)
    {
        ne3_val_od_ctrl control{};
        control.*member = static_cast<Block *>(area.address);
        *(control.*member) = block;
        EXPECT_EQ(0, ne3_val_od_set_ctrl(&control));
    }

    void use_filters(const std::vector<ne3_val_od_filter> &filters,
                     const std::vector<ne3_val_od_polygon> &no_detection = {}) const
    {
        ne3_val_od_vmf vmf{};
        vmf.filterNum = static_cast<std::uint16_t>(filters.size());
        std::ranges::copy(filters, vmf.filters);
        vmf.ndAreaNum = static_cast<std::uint32_t>(no_detection.size());
        std::ranges::copy(no_detection, vmf.ndAreas);
        use(&ne3_val_od_ctrl::vmf, areas->vmf, vmf);
    }

    static Seen next()
    {
        ne3_val_od_result result{};
        EXPECT_TRUE(wait_until([&] { return ne3_val_od_get_data(1, &result) == 0; }));
        Seen seen{{}, result.vmfAlarms};
        const auto *entry = static_cast<const unsigned char *>(result.objects);
        for (int i = 0; i < result.objectNum; ++i, entry += NE3_VAL_OD_OBJECT_SIZE) {
            std::uint32_t id;
            std::memcpy(&id, entry, sizeof id);
            seen.first.insert(id);
        }
        return seen;
    }

    ne3_val_od_area_table *areas = nullptr;
};

ne3_val_od_filter filter_of(std::vector<ne3_val_od_point> points, std::int32_t direction = 0)
{
    ne3_val_od_filter filter{};
    filter.pointNum = static_cast<std::uint16_t>(points.size());
    std::ranges::copy(points, filter.points);
    filter.objMaxSizeX = 59;
    filter.objMaxSizeY = 90;
    filter.movingDirection = direction;
    return filter;
}

TEST_F(SimOdTest, ObjectsObeyTheControlRecord)
{
    // A cell of the grid is 12 x 12 pixels.
    ASSERT_TRUE(sim_play_scene(
        write_scene("od_interval 1\n"
                    "object 1 dynamic 120x120 from 300,500 to 300,500 between 0 99999999\n"
                    "object 2 dynamic 120x120 from 1300,500 to 1300,500 between 0 99999999\n"
                    "object 3 dynamic 720x600 from 1400,500 to 1400,500 between 0 99999999\n"
                    "object 4 static  120x120 from 1500,500 to 1500,500 between 0 99999999\n")));
    EXPECT_EQ(Seen({1, 2, 3, 4}, 0), next());
    use(&ne3_val_od_ctrl::nonDetMasks, areas->nonDetMasks, left_mask);
    EXPECT_EQ(Seen({2, 3, 4}, 0), next());
    use(&ne3_val_od_ctrl::detMasks, areas->detMasks, left_mask);
    EXPECT_EQ(Seen({1}, 0), next());
    use(&ne3_val_od_ctrl::doSet, areas->doSet, {0, 59, 90, 10, 10});
    EXPECT_EQ(Seen({1, 2, 4}, 0), next());
    use(&ne3_val_od_ctrl::doSet, areas->doSet, {0, 60, 50, 10, 11});
    EXPECT_EQ(Seen({3, 4}, 0), next());
    use(&ne3_val_od_ctrl::doInit, areas->doInit, {2});
    EXPECT_EQ(Seen({1, 2, 4}, 0), next());

    const auto area = filter_of({left_half.points, left_half.points + 4});
    auto larger = area;
    larger.objMinSizeY = 11;
    use_filters({filter_of({}), area, larger});
    EXPECT_EQ(Seen({1, 2, 3, 4}, 2), next());
    static_cast<ne3_val_od_vmf *>(areas->vmf.address)->filterNum = 0; // not set, so without effect
    EXPECT_EQ(2U, next().second);
    use_filters({filter_of({}), area, larger}, {left_half});
    EXPECT_EQ(0U, next().second);
}

TEST_F(SimOdTest, LinesAlarmInTheirDirection)
{
    // It runs rightwards again and again; the jump back between two rounds is no crossing.
    ASSERT_TRUE(sim_play_scene(
        write_scene("period 100\n"
                    "od_interval 10\n"
                    "object 1 dynamic 120x120 from 100,500 to 1800,500 between 0 100\n")));
    const auto upwards = [](std::int32_t direction) {
        return filter_of({{960, 1080}, {960, 0}}, direction);
    };
    const auto downwards = [](std::int32_t direction) {
        return filter_of({{960, 0}, {960, 1080}}, direction);
    };
    const auto short_line = filter_of({{960, 1080}, {960, 501}});
    const auto point = filter_of({{960, 500}, {960, 500}});
    const struct {
        std::vector<ne3_val_od_filter> filters;
        std::uint32_t alarms;
    } cases[] = {
        {{upwards(1), upwards(2), short_line}, 1},
        {{downwards(1), downwards(2), point}, 2},
        {{upwards(0), downwards(-1)}, 3},
    };
    for (const auto &test : cases) {
        use_filters(test.filters);
        int crossings = 0;
        std::uint32_t alarms = 0;
        EXPECT_TRUE(wait_until([&] {
            const std::uint32_t seen = next().second;
            alarms |= seen;
            crossings += seen != 0;
            return crossings == 3;
        }));
        EXPECT_EQ(test.alarms, alarms);
    }
}

TEST_F(SimOdTest, BlocksMustBeTheLibrarysOwn)
{
    ne3_val_od_masks foreign = left_mask;
    for (void *address : {static_cast<void *>(&foreign), areas->nonDetMasks.address}) {
        ne3_val_od_ctrl control{};
        control.detMasks = static_cast<ne3_val_od_masks *>(address);
        Outcome result;
        const Call set = [&] { return ne3_val_od_set_ctrl(&control); };
        EXPECT_EQ(0U, stderr_of([&] { result = outcome(set); }).find("sim: od detMasks refused"));
        EXPECT_EQ(Outcome(-1, EINVAL), result);
    }
    EXPECT_FALSE(sim_od_control().has_value());

    EXPECT_EQ("sim: od control flags=0x0 resolution=0 interval=0 diffImgNum=0\n"
              "sim: od detMasks maskNum=1\n"
              "sim: od detMasks 0 (0,0) (0,1080) (960,1080) (960,0)\n",
              stderr_of([&] { use(&ne3_val_od_ctrl::detMasks, areas->detMasks, left_mask); }));
    ASSERT_TRUE(sim_od_control()->detMasks.has_value());
    EXPECT_EQ(960, sim_od_control()->detMasks->masks[0].points[2].x);
}

} // namespace
