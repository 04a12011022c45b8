#include "platform/sim/sim.h"
#include "tests/support/capture.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

namespace
{

using Call = std::function<int()>;
using Outcome = std::pair<int, int>; // result and errno

Outcome outcome(const Call &call)
{
    errno = 0;
    const int result = call();
    return {result, result == -1 ? errno : 0};
}

constexpr ne3_val_open_prm ta_prm{1, 1, 0};

int read_ta()
{
    ne3_val_ta_result result;
    return ne3_val_ta_get_data(1, &result);
}

TEST(Sim, RefusesCallsInTheWrongState)
{
    sim_reset();
    vanaMemInfo info;
    const Call map = [&] { return ne3_cl_cpu3_get_memory_info(&info); };
    const Call ta_open = [] { return ne3_val_ta_open(&ta_prm); };
    const Call od_set = [] { return ne3_val_od_set_ctrl(nullptr); };
    // clang-format off
    const std::pair<std::vector<Call>, std::vector<Call>> rows[] = {
        // calls that succeed, then calls that are refused
        {{}, {ne3_cl_sys_open_device, map, ne3_cl_library_exit, ne3_val_open, ta_open}},
        {{ne3_cl_library_init, ne3_cl_sys_open_device}, {ne3_cl_library_init, ne3_cl_library_exit}},
        {{map, map}, {ne3_cl_cpu3_boot, ne3_cl_cpu3_shutdown}},
        {{ne3_cl_cpu3_xfer_complete, ne3_cl_cpu3_boot}, {map, ne3_cl_cpu3_xfer_cancel}},
        {{ne3_cl_cpu3_shutdown, ne3_cl_sys_close_device}, {ne3_cl_sys_close_device, map}},
        {{ne3_val_init, ne3_val_open}, {ne3_val_init, ne3_val_exit, ne3_val_ta_start, od_set}},
        {{ta_open}, {ta_open, read_ta, ne3_val_ta_stop}},
        {{ne3_val_ta_start}, {ne3_val_ta_start, ne3_val_ta_close}},
        {{ne3_val_ta_stop, ne3_val_close}, {ne3_val_ta_close, ne3_val_ta_start}}};
    // clang-format on
    for (std::size_t row = 0; row < std::size(rows); ++row) {
        for (const Call &step : rows[row].first)
            EXPECT_EQ(Outcome(0, 0), outcome(step)) << row;
        for (const Call &call : rows[row].second)
            EXPECT_EQ(Outcome(-1, EPERM), outcome(call)) << row;
    }
}

class SimTest : public testing::Test
{
protected:
    SimTest()
    {
        sim_reset();
        EXPECT_EQ(0, ne3_val_init());
        EXPECT_EQ(0, ne3_val_open());
        EXPECT_EQ(0, ne3_val_ta_open(&ta_prm));
        EXPECT_EQ(0, ne3_val_ta_start());
        const ne3_val_od_open_prm od_prm{4, 1, 0, 1};
        EXPECT_EQ(0, ne3_val_od_start(ne3_val_od_open_ex(&od_prm, 1)));
        std::uint16_t count = 0;
        EXPECT_EQ(0, ne3_val_od_get_area_data_mem(&count, &areas));
    }

    bool play(const std::string &scene) const
    {
        std::ofstream(files.file("scene")) << scene;
        return sim_play_scene(files.file("scene"));
    }

    // Sets a control record with this one block.
    template <class Block>
    static int use(Block *ne3_val_od_ctrl::*member, void *address, const Block &block)
    {
        ne3_val_od_ctrl control{};
        control.*member = static_cast<Block *>(address);
        *(control.*member) = block;
        return ne3_val_od_set_ctrl(&control);
    }

    // The objects of the next result, a digit each; adds its alarms to `alarms`.
    std::string next()
    {
        ne3_val_od_result result{};
        EXPECT_TRUE(wait_until([&] { return ne3_val_od_get_data(1, &result) == 0; }));
        alarms |= result.vmfAlarms;
        std::string ids;
        for (std::size_t i = 0; i < static_cast<std::size_t>(result.objectNum); ++i)
            ids += std::to_string(
                static_cast<const char *>(result.objects)[i * NE3_VAL_OD_OBJECT_SIZE]);
        return ids;
    }

    TempDir files;
    ne3_val_od_area_table *areas = nullptr;
    std::uint32_t alarms = 0;
};

TEST_F(SimTest, CancelEndsTheReadThatWaits)
{
    Outcome ended;
    std::thread reader([&] {
        do
            ended = outcome(read_ta);
        while (ended.first == 1);
    });
    EXPECT_TRUE(wait_until([] { return ne3_val_ta_cancel_data() == 0; }));
    reader.join();
    EXPECT_EQ(Outcome(-1, NE3_VAL_ERR_CANCEL), ended);
    EXPECT_EQ(Outcome(1, 0), outcome(read_ta)); // it ended that read only
    EXPECT_EQ(Outcome(-1, EAGAIN), outcome(ne3_val_ta_cancel_data));
}

TEST_F(SimTest, PlannedFailuresTakeTheCallsPlace)
{
    sim_fail("ne3_val_ta_get_data", 2, 77);
    for (const Outcome &expected : {Outcome(1, 0), Outcome(-1, 77), Outcome(1, 0)})
        EXPECT_EQ(expected, outcome(read_ta));
}

TEST_F(SimTest, ReportsTheLinesOfASceneThatAreWrong)
{
    const std::string report = stderr_of([&] {
        EXPECT_FALSE(play("frame 640 480 # good\n\n"
                          "object 1 dynamic 10x from 1,1 to 2,2 between 0 9\n"
                          "face 1 at 1,1 size 9x9 between 9 9\n"
                          "every 0 ta 1 2 3 4\n"
                          "at 0 ta 1 0xffffffff -1 4\n"));
    });
    EXPECT_EQ(3, std::count(report.begin(), report.end(), '\n'));
    for (const char *place : {"scene:3: ", "scene:4: ", "scene:5: "})
        EXPECT_NE(std::string::npos, report.find(place)) << place;
    EXPECT_EQ(0, read_ta()); // the others count
}

ne3_val_od_filter filter_of(const std::vector<ne3_val_od_point> &points, std::int32_t direction,
                            std::uint16_t min_size = 0)
{
    ne3_val_od_filter filter{};
    filter.pointNum = static_cast<std::uint16_t>(points.size());
    std::ranges::copy(points, filter.points);
    filter.objMinSizeY = min_size;
    filter.objMaxSizeX = 59;
    filter.objMaxSizeY = 90;
    filter.movingDirection = direction;
    return filter;
}

TEST_F(SimTest, ObjectsObeyTheControlRecord)
{
    const ne3_val_od_masks left_mask{1, {{4, {{0, 0}, {0, 1080}, {960, 1080}, {960, 0}}}}};
    // A cell of the grid is 12 x 12 pixels.
    ASSERT_TRUE(play("od_interval 1\n"
                     "object 1 dynamic 120x120 from 300,500 to 300,500 between 0 99999999\n"
                     "object 2 dynamic 120x120 from 1300,500 to 1300,500 between 0 99999999\n"
                     "object 3 dynamic 720x600 from 1400,500 to 1400,500 between 0 99999999\n"
                     "object 4 static  120x120 from 1500,500 to 1500,500 between 0 99999999\n"));
    EXPECT_EQ("1234", next());
    EXPECT_EQ(0, use(&ne3_val_od_ctrl::nonDetMasks, areas->nonDetMasks.address, left_mask));
    EXPECT_EQ("234", next());
    EXPECT_EQ(0, use(&ne3_val_od_ctrl::detMasks, areas->detMasks.address, left_mask));
    EXPECT_EQ("1", next());
    EXPECT_EQ(0, use(&ne3_val_od_ctrl::doSet, areas->doSet.address, {0, 59, 90, 10, 10}));
    EXPECT_EQ("124", next());
    ne3_val_od_masks foreign = left_mask;
    for (void *address : {static_cast<void *>(&foreign), areas->nonDetMasks.address}) {
        const Call set = [&] { return use(&ne3_val_od_ctrl::detMasks, address, left_mask); };
        EXPECT_EQ(Outcome(-1, EINVAL), outcome(set));
    }
    EXPECT_FALSE(sim_od_control()->detMasks);
}

TEST_F(SimTest, FiltersAlarm)
{
    // It runs rightwards again and again; the jump back between two rounds is no crossing.
    ASSERT_TRUE(play("period 100\n"
                     "od_interval 10\n"
                     "object 1 dynamic 120x120 from 100,500 to 1800,500 between 0 100\n"));
    const std::vector<ne3_val_od_point> up = {{960, 1080}, {960, 0}};
    const std::vector<ne3_val_od_point> down = {{960, 0}, {960, 1080}};
    const std::vector<ne3_val_od_point> too_short = {{960, 1080}, {960, 501}};
    const std::vector<ne3_val_od_point> area = {{0, 0}, {0, 1080}, {960, 1080}, {960, 0}};
    const auto alarms_of = [&](const std::vector<ne3_val_od_filter> &filters) {
        ne3_val_od_vmf vmf{};
        vmf.filterNum = static_cast<std::uint16_t>(filters.size());
        std::ranges::copy(filters, vmf.filters);
        EXPECT_EQ(0, use(&ne3_val_od_ctrl::vmf, areas->vmf.address, vmf));
        alarms = 0;
        for (int result = 0; result < 30; ++result) // three rounds
            next();
        return alarms;
    };
    EXPECT_EQ(1U, alarms_of({filter_of(up, 1), filter_of(up, 2), filter_of(too_short, 0)}));
    EXPECT_EQ(6U, alarms_of({filter_of(down, 1), filter_of(down, 2), filter_of(up, 0)}));
    EXPECT_EQ(2U, alarms_of({filter_of({}, 0), filter_of(area, 0), filter_of(area, 0, 11)}));
}

} // namespace
