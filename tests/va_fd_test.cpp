#include "tests/support/store_file.h"
#include "tests/support/va_fixture.h"
#include "va/fd_control.h"
#include "va/va_fd.h"

#include <array>
#include <cstring>

namespace
{

using std::string;

class VaFdTest : public VaTest
{
protected:
    // Reads the settings and starts the module on a fresh stand-in.
    SimFdControl start(const string &settings, const ne3_val_fd_ctrl &old = {})
    {
        open_library();
        sim_set_fd_defaults(old);
        files.store(settings);
        va_fd_getConf(&context);
        EXPECT_EQ(0, run([&] { return va_fd_init(&context); }));
        return sim_fd_control().value_or(SimFdControl{});
    }
};

string face_window(int number, int left, int right, int top, int bottom, bool detected)
{
    const string key = "FaceDetection.F" + std::to_string(number) + ".";
    return window(key, left, right, top, bottom) +
           lines(key, {detected ? "WindowType=Detected" : "WindowType=watch"});
}

TEST_F(VaFdTest, MapsEverySensitivity)
{
    for (int s = 0; s < 256; ++s) {
        // 54 falls to 0 at 108, a step for two; what would be negative is the largest ratio.
        const int wanted = s < 110 ? (s <= 50 ? 29 + (50 - s) / 2 : 29 - (s - 50) / 2) : 64;
        EXPECT_EQ(wanted, fd_threshold_ratio(static_cast<std::uint8_t>(s))) << s;
    }
    EXPECT_EQ(4, start("FaceDetection.Sensitivity=356\n").ctrl.thresRatio);
    EXPECT_EQ("init fd.\n==> old fd thresRatio = 0\n==>fd thresRatio=4\n", output);
}

TEST_F(VaFdTest, SendsTheSettingsThatAreSet)
{
    ne3_val_fd_ctrl wanted;
    std::memset(&wanted, 0x55, sizeof wanted);
    wanted.mask = nullptr;
    wanted.windows = nullptr;
    const ne3_val_fd_ctrl sent =
        start("Properties.FaceDetection.Flip=on\nFaceDetection.MaxDetectionSize=959\n"
              "VideoAnalytics.FD.FaceTotal=300\n",
              wanted)
            .ctrl;
    wanted.flip = 1;
    wanted.maskEnable = 0;
    wanted.sizeChkMtd = 1;
    wanted.minDetectionSize = 120;
    wanted.maxDetectionSize = 959;
    wanted.faceTotal = 44;
    EXPECT_EQ(0, std::memcmp(&wanted, &sent, offsetof(ne3_val_fd_ctrl, mask)));
    EXPECT_TRUE(sent.windowBits == 0x55555555 && !sent.mask && !sent.windows);
    EXPECT_EQ("init fd.\n==> old fd thresRatio = 85\n==>fd thresRatio=85\n", output);
    EXPECT_TRUE(sim_open_prm("fd")->prm0 == 1 && sim_open_prm("fd")->prm1 == 1);

    ne3_val_fd_ctrl all{};
    fd_apply_settings({0, 1, 2, 3, 4, 5, 6, 7, 8}, all);
    EXPECT_TRUE(all.almMtd == 1 && all.sizeChkMtd == 2 && all.minDetectionSize == 3 &&
                all.maxDetectionSize == 4 && all.faceTotal == 6 && all.angleMtd == 7 &&
                all.angle == 8);
}

TEST_F(VaFdTest, ChecksFaceSizesOnlyWhenAsked)
{
    // clang-format off
    const struct {
        int method, min, max, sent;
    } cases[] = {{1, 120, 960, 1}, {1, 960, 960, 1}, {1, 119, 960, 0}, {1, 120, 961, 0},
                 {1, 121, 120, 0}, {0, 1, 1, 0}, {2, 1, 1, 2}, {257, 1, 1, 0}, {1, -1, 960, 0},
                 {1, 65656, 960, 1}};
    // clang-format on
    for (const auto &test : cases) {
        const FDCtrlConf conf{0, -1, test.method, test.min, test.max, -1, -1, -1, -1};
        ne3_val_fd_ctrl ctrl{};
        fd_apply_settings(conf, ctrl);
        EXPECT_EQ(test.sent, ctrl.sizeChkMtd) << test.method << " " << test.min;
    }
}

// Whether a window covers a cell, told from the cell's side.
bool covers(const VaFdWindow &window, int rows, int row, int column)
{
    const int top = rows * window.y / 10000;
    const int left = 16 * window.x / 10000;
    return window.enabled && row >= top && row - top < rows * window.height / 10000 &&
           column >= left && column - left < 16 * window.width / 10000;
}

TEST_F(VaFdTest, MarksTheWatchedCells)
{
    const std::vector<VaFdWindow> lists[] = {
        {{1, 0, 0, 0, 9999, 9999}},
        {{1, 0, 5000, 5000, 4999, 4999}, {0, 1, 0, 0, 9999, 9999}, {1, 2, 0, 0, 624, 9999}},
        {{1, 0, 0, 0, 625, 1112}, {1, 1, 9374, 8888, 625, 1111}, {1, 2, 0, 0, 9999, 833}},
        {{1, 0, 100, 7000, 3000, 2500}, {1, 1, 3333, 0, 1, 9999}, {1, 2, 2500, 2500, 5000, 834}},
    };
    for (const bool wide : {true, false}) {
        const int rows = wide ? 9 : 12;
        EXPECT_EQ(wide ? 18U : 24U, fd_watch_mask_size(wide));
        for (const auto &windows : lists) {
            const ne3_val_fd_mask mask = fd_watch_mask(windows, wide);
            for (int cell = 0; cell < 192; ++cell) {
                const bool wanted = std::ranges::any_of(windows, [&](const VaFdWindow &window) {
                    return covers(window, rows, cell / 16, cell % 16);
                });
                EXPECT_EQ(wanted, mask.cells[cell / 8] >> cell % 8 & 1) << cell;
            }
        }
    }
    const SimFdControl sent = start(face_window(4, 0, 9999, 9999, 0, false));
    ASSERT_TRUE(sent.mask);
    EXPECT_EQ(1, sent.ctrl.maskEnable);
    for (int i = 0; i < 18; ++i)
        EXPECT_EQ(i >= 16 ? 0 : i % 2 == 0 ? 0xff : 0x7f, sent.mask->cells[i]);
}

TEST_F(VaFdTest, ClampsWindowsToTheFrame)
{
    const struct {
        int width, height, min_x, min_y, max_x, max_y;
    } frames[] = {{2736, 2200, 88, 140, 2648, 2060}, {2248, 2048, 4, 184, 2244, 1864},
                  {2048, 1536, 64, 48, 1984, 1488},  {1920, 1440, 0, 0, 1920, 1440},
                  {1280, 1024, 0, 32, 1280, 992},    {1280, 960, 0, 0, 1280, 960},
                  {800, 600, 0, 0, 800, 600},        {720, 480, 0, 0, 720, 480},
                  {720, 576, 0, 0, 720, 576},        {1920, 1080, 0, 0, 1920, 1080},
                  {1280, 720, 0, 0, 1280, 720}};
    for (const auto &frame : frames) {
        const auto [width, height, min_x, min_y, max_x, max_y] = frame;
        std::array<std::int32_t, 4> box = {-1, min_y + 1, 9999, 9999};
        EXPECT_EQ(0,
                  va_fd_watchframe_checkRange(&box[0], &box[1], &box[2], &box[3], width, height));
        EXPECT_EQ((std::array{min_x, min_y + 1, max_x, max_y}), box);
        box = {min_x + 1, -1, min_x + 2, min_y + 1};
        va_fd_watchframe_checkRange(&box[0], &box[1], &box[2], &box[3], width, height);
        EXPECT_EQ((std::array{min_x + 1, min_y, min_x + 2, min_y + 1}), box);
    }
    std::int32_t same = 5;
    EXPECT_EQ(-1, run([&] {
        return va_fd_watchframe_checkRange(&same, &same, &same, &same, 1600, 1200);
    }));
    EXPECT_EQ("va_fd_watchframe_checkRange: input resolution is incorrect(1600x1200).\n", output);
    EXPECT_EQ(5, same);
}

TEST_F(VaFdTest, SendsDetectionWindowsInPixels)
{
    const string settings = face_window(3, 0, 9999, 0, 9999, true) +
                            face_window(5, 6000, 4000, 1000, 2000, true) +
                            face_window(6, 0, 9999, 0, 9999, false);
    const ne3_val_fd_window_list hd{{{0, 0, 1919, 1079}, {768, 108, 1152, 216}}};
    const ne3_val_fd_window_list sxga{{{0, 32, 1279, 992}, {512, 102, 768, 204}}};
    const struct {
        int width, height;
        const ne3_val_fd_window_list *list; // null: the frame is not known
    } cases[] = {{1920, 1080, &hd}, {1280, 1024, &sxga}, {1600, 1200, nullptr}};
    for (const auto &test : cases) {
        use_sensor(test.width, test.height);
        const SimFdControl sent = start(settings);
        EXPECT_EQ(1, sent.ctrl.maskEnable);
        EXPECT_EQ(test.list ? 3U : 0U, sent.ctrl.windowBits);
        ASSERT_EQ(test.list != nullptr, sent.windows.has_value());
        EXPECT_TRUE(!test.list || std::memcmp(test.list, &*sent.windows, sizeof *test.list) == 0);
        const string line = "input resolution is incorrect(1600x1200).\n";
        EXPECT_EQ(!test.list, output.find(line, output.find(line) + 1) != string::npos);
    }
}

TEST_F(VaFdTest, TakesTheFirstWindowsByNumber)
{
    for (const int watched : {25, 18}) { // of the 30 windows that are read
        string settings;
        for (int number = 0; number <= 30; ++number)
            settings += face_window(number, number, 9999, 0, 9999, number >= watched);
        start(settings);
        for (int slot = 0; slot < 20; ++slot) {
            const VaFdWindow &watch = context.fdWatchWindows[slot];
            ASSERT_EQ(slot < watched, watch.enabled);
            EXPECT_TRUE(!watch.enabled || (watch.id == slot && watch.x == slot));
        }
        for (int slot = 0; slot < 10; ++slot) {
            const VaFdWindow &detect = context.fdDetectWindows[slot];
            ASSERT_EQ(slot < 30 - watched, detect.enabled);
            EXPECT_TRUE(!detect.enabled || (detect.id == slot && detect.x == watched + slot));
        }
    }
    const std::size_t calls = sim_calls().size();
    EXPECT_EQ(0, va_fd_updateConfig(&context));
    EXPECT_EQ(calls, sim_calls().size());
}

} // namespace
