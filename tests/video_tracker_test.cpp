#include "video/tracker.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <random>
#include <set>

#include <gtest/gtest.h>

using namespace va::video;

namespace
{

using Boxes = std::vector<Box>;

constexpr Box picture = {0, 0, 640, 360};
constexpr float line = 320;
constexpr VideoTime step = 40;

// Walks at 100 pixels a second, is 30 wide and crosses the line after three seconds.
Box walker(VideoTime time, float direction = 1, float y = 100)
{
    return {line - 15 + direction * (static_cast<float>(time - 3000) / 10), y, 30, 80};
}

Boxes in_picture(const Boxes &boxes)
{
    Boxes cut;
    for (const Box &box : boxes) {
        const float x = std::max(box.x, 0.F);
        const float width = std::min(box.right(), picture.width) - x;
        if (width > 2)
            cut.push_back({x, box.y, width, box.height});
    }
    return cut;
}

struct Result {
    std::set<std::uint32_t> numbers;
    int to_right = 0;
    int to_left = 0;
};

// Six seconds of frames, and the crossings that a line filter finds, which compares the last
// centres.
Result track(const std::function<Boxes(VideoTime)> &boxes_at)
{
    Tracker tracker(TRACK_OBJECTS);
    std::map<std::uint32_t, float> before;
    Result result;
    for (VideoTime time = 0; time < 6000; time += step) {
        std::map<std::uint32_t, float> now;
        for (const auto &[id, stationary, box] :
             tracker.update(in_picture(boxes_at(time)), {}, picture, time)) {
            result.numbers.insert(id);
            now[id] = box.centre().x;
            if (!before.contains(id))
                continue;
            result.to_right += before[id] < line && now[id] >= line;
            result.to_left += before[id] >= line && now[id] < line;
        }
        before = now;
    }
    return result;
}

struct Case {
    const char *what;
    std::size_t tracks;
    int to_right;
    int to_left;
    std::function<Boxes(VideoTime)> boxes_at;
};

Boxes joined_if_touching(const Box &a, const Box &b)
{
    return intersection_area(a, b) > 0 ? Boxes{enclosing(a, b)} : Boxes{a, b};
}

TEST(VideoTracker, ReportsEachObjectOnceAndEachCrossing)
{
    std::mt19937 random(7);
    const auto within = [&](float least, float most) {
        return std::uniform_real_distribution<float>(least, most)(random);
    };
    const Case cases[] = {
        {"straight on", 1, 1, 0, [](VideoTime t) { return Boxes{walker(t)}; }},
        {"lost for half a second on the line", 1, 1, 0,
         [](VideoTime t) { return std::abs(t - 3000) < 240 ? Boxes{} : Boxes{walker(t)}; }},
        {"in pieces", 1, 1, 0,
         [](VideoTime t) {
             const Box box = walker(t);
             return t % 80 ? Boxes{{box.x + 8, box.y, 14, 18}, {box.x, box.y + 24, 30, 56}}
                           : Boxes{box};
         }},
        {"appears just before the line", 1, 1, 0,
         [](VideoTime t) { return t < 2960 ? Boxes{} : Boxes{walker(t)}; }},
        {"stops and trembles on the line", 1, 1, 0,
         [&](VideoTime t) {
             Box box = walker(std::min<VideoTime>(t, 3080));
             box.x += within(-1.5, 1.5);
             return Boxes{box};
         }},
        {"two meet on the line", 2, 1, 1,
         [](VideoTime t) { return joined_if_touching(walker(t), walker(t + 200, -1, 105)); }},
        {"one leaves where the other enters", 2, 1, 1,
         [](VideoTime t) {
             const Box one = walker(2 * t);
             return one.x < 630 ? joined_if_touching(one, walker(2 * t - 5600, -1))
                                : Boxes{walker(2 * t - 5600, -1)};
         }},
        {"swaying leaves", 0, 0, 0,
         [](VideoTime t) {
             return Boxes{{310 + 4 * std::sin(static_cast<float>(t) / 150), 50, 20, 90}};
         }},
        {"grows, but does not move", 0, 0, 0,
         [](VideoTime t) {
             return Boxes{{310, 50, 20, 20 + static_cast<float>(t) / 50}};
         }},
        {"noise", 0, 0, 0,
         [&](VideoTime) {
             return Boxes{{within(0, 600), within(0, 300), within(5, 30), within(5, 30)},
                          {within(0, 600), within(0, 300), within(5, 30), within(5, 30)}};
         }},
    };
    for (const Case &row : cases) {
        const Result result = track(row.boxes_at);
        EXPECT_EQ(result.numbers.size(), row.tracks) << row.what;
        EXPECT_EQ(result.to_right, row.to_right) << row.what;
        EXPECT_EQ(result.to_left, row.to_left) << row.what;
    }
}

TEST(VideoTracker, KeepsTheNumberOfAnObjectThatStopsAndReusesNone)
{
    Tracker tracker(TRACK_OBJECTS);
    VideoTime time = 0;
    std::vector<TrackedObject> objects;
    for (; time < 4000; time += step)
        objects = tracker.update(Boxes{walker(std::min<VideoTime>(time, 2000))}, {}, picture, time);
    ASSERT_EQ(objects.size(), 1U);
    const std::uint32_t id = objects[0].id;
    const StationaryBox stationary[] = {{5, walker(2000)}, {6, {500, 300, 20, 20}}};
    objects = tracker.update({}, stationary, picture, time += step);
    ASSERT_EQ(objects.size(), 2U);
    EXPECT_EQ(objects[0].id, id);
    EXPECT_TRUE(objects[0].stationary);
    EXPECT_GT(objects[1].id, id);
    tracker.reset();
    const std::uint32_t last = objects[1].id;
    objects = tracker.update({}, stationary, picture, time += step);
    ASSERT_EQ(objects.size(), 2U);
    EXPECT_GT(objects[0].id, last);
    EXPECT_TRUE(tracker.update({}, {}, picture, time += step).empty()) << "gone at once";
}

} // namespace
