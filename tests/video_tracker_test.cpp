#include "video/tracker.h"

#include <cmath>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <set>

#include <gtest/gtest.h>

namespace
{

using Boxes = std::vector<Box>;

constexpr Box picture = {0, 0, 640, 360};
constexpr float line = 320;
constexpr VideoTime step = 40;

// Who walks at 100 pixels a second and is 30 wide passes the line after three seconds.
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

struct Seen {
    std::set<std::uint32_t> numbers;
    int to_right = 0;
    int to_left = 0;
};

// Six seconds of looks, and what a line filter makes of them, which knows the last centres alone.
Seen watch(const std::function<Boxes(VideoTime)> &boxes_at)
{
    Tracker tracker(FOLLOW_OBJECTS);
    std::map<std::uint32_t, float> before;
    Seen seen;
    for (VideoTime time = 0; time < 6000; time += step) {
        std::map<std::uint32_t, float> now;
        for (const auto &[id, standing, box] :
             tracker.look(in_picture(boxes_at(time)), {}, picture, time)) {
            seen.numbers.insert(id);
            now[id] = box.centre().x;
            if (!before.contains(id))
                continue;
            seen.to_right += before[id] < line && now[id] >= line;
            seen.to_left += before[id] >= line && now[id] < line;
        }
        before = now;
    }
    return seen;
}

struct Case {
    const char *what;
    std::size_t tracks;
    int to_right;
    int to_left;
    std::function<Boxes(VideoTime)> boxes_at;
};

Boxes united_if_touching(const Box &a, const Box &b)
{
    return common_area(a, b) > 0 ? Boxes{united(a, b)} : Boxes{a, b};
}

TEST(VideoTracker, TellsEachThingOnceAndEachCrossing)
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
        {"appears shortly before the line", 1, 1, 0,
         [](VideoTime t) { return t < 2960 ? Boxes{} : Boxes{walker(t)}; }},
        {"comes to tremble on the line", 1, 1, 0,
         [&](VideoTime t) {
             Box box = walker(std::min<VideoTime>(t, 3080));
             box.x += within(-1.5, 1.5);
             return Boxes{box};
         }},
        {"two meet on the line", 2, 1, 1,
         [](VideoTime t) { return united_if_touching(walker(t), walker(t + 200, -1, 105)); }},
        {"one leaves where the other comes in", 2, 1, 1,
         [](VideoTime t) {
             const Box one = walker(2 * t);
             return one.x < 630 ? united_if_touching(one, walker(2 * t - 5600, -1))
                                : Boxes{walker(2 * t - 5600, -1)};
         }},
        {"leaves that sway", 0, 0, 0,
         [](VideoTime t) {
             return Boxes{{310 + 4 * std::sin(static_cast<float>(t) / 150), 50, 20, 90}};
         }},
        {"grows, but goes nowhere", 0, 0, 0,
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
        const Seen seen = watch(row.boxes_at);
        EXPECT_EQ(seen.numbers.size(), row.tracks) << row.what;
        EXPECT_EQ(seen.to_right, row.to_right) << row.what;
        EXPECT_EQ(seen.to_left, row.to_left) << row.what;
    }
}

TEST(VideoTracker, KeepsTheNumberOfWhatComesToStandAndNeverUsesOneAgain)
{
    Tracker tracker(FOLLOW_OBJECTS);
    VideoTime time = 0;
    std::vector<Tracked> told;
    for (; time < 4000; time += step)
        told = tracker.look(Boxes{walker(std::min<VideoTime>(time, 2000))}, {}, picture, time);
    ASSERT_EQ(told.size(), 1U);
    const std::uint32_t id = told[0].id;
    const StandingBox standing[] = {{5, walker(2000)}, {6, {500, 300, 20, 20}}};
    told = tracker.look({}, standing, picture, time += step);
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[0].id, id);
    EXPECT_TRUE(told[0].standing);
    EXPECT_GT(told[1].id, id);
    tracker.forget();
    const std::uint32_t last = told[1].id;
    told = tracker.look({}, standing, picture, time += step);
    ASSERT_EQ(told.size(), 2U);
    EXPECT_GT(told[0].id, last);
    EXPECT_TRUE(tracker.look({}, {}, picture, time += step).empty()) << "gone at once";
}

} // namespace
