#include "tests/support/local_stream.h"
#include "tests/support/va_fixture.h"
#include "va/fd_control.h"
#include "va/options.h"
#include "va/va_fd.h"

#include <climits>
#include <cstring>

namespace
{

using std::string;

class VaFdTest : public VaTest
{
protected:
    VaFdTest()
    {
        open_library();
        use(1920, 1080);
    }

    static void open_library()
    {
        sim_reset();
        ne3_val_init();
        ne3_val_open();
    }

    void use(int width, int height)
    {
        context.sensorConf.width = width;
        context.sensorConf.height = height;
        context.wideAspect = 100 * width / height == 177;
    }

    // Reads the settings and starts the module. What starting prints.
    string start(const string &settings)
    {
        files.store(settings);
        va_fd_getConf(&context);
        return stdout_of([&] { EXPECT_EQ(0, va_fd_init(&context)); });
    }

    VaContext context{};
};

string window(int number, int left, int right, int top, int bottom, bool detected)
{
    const string key = "FaceDetection.F" + std::to_string(number) + ".";
    return key + "Left=" + std::to_string(left) + "\n" + key + "Right=" + std::to_string(right) +
           "\n" + key + "Top=" + std::to_string(top) + "\n" + key +
           "Bottom=" + std::to_string(bottom) + "\n" + key +
           "WindowType=" + (detected ? "Detected" : "watch") + "\n";
}

TEST_F(VaFdTest, MapsEverySensitivity)
{
    for (int s = 0; s < 256; ++s) {
        // 54 falls to 0 at 108, a step for two; what would be negative is the largest ratio.
        const int wanted = s < 110 ? (s <= 50 ? 29 + (50 - s) / 2 : 29 - (s - 50) / 2) : 64;
        EXPECT_EQ(wanted, fd_threshold_ratio(static_cast<std::uint8_t>(s))) << s;
    }
    const struct {
        const char *setting;
        int ratio;
    } cases[] = {{"", 33},
                 {"FaceDetection.Sensitivity=75\n", 17},
                 {"FaceDetection.Sensitivity=0\n", 54},
                 {"FaceDetection.Sensitivity=100\n", 4},
                 {"FaceDetection.Sensitivity=356\n", 4}};
    for (const auto &test : cases) {
        open_library();
        ne3_val_fd_ctrl old{};
        old.thresRatio = 33;
        sim_set_fd_defaults(old);
        EXPECT_EQ("init fd.\n==> old fd thresRatio = 33\n==>fd thresRatio=" +
                      std::to_string(test.ratio) + "\n",
                  start(test.setting));
        EXPECT_EQ(test.ratio, sim_fd_control()->ctrl.thresRatio);
    }
}

TEST_F(VaFdTest, SendsTheSettingsThatAreSet)
{
    ne3_val_fd_ctrl old;
    std::memset(&old, 0x55, sizeof old);
    old.mask = nullptr;
    old.windows = nullptr;
    sim_set_fd_defaults(old);
    start("Properties.FaceDetection.Flip=on\nFaceDetection.MaxDetectionSize=959\n"
          "VideoAnalytics.FD.FaceTotal=300\n");
    ne3_val_fd_ctrl wanted = old;
    wanted.flip = 1;
    wanted.maskEnable = 0;
    wanted.sizeChkMtd = 1;
    wanted.minDetectionSize = 120;
    wanted.maxDetectionSize = 959;
    wanted.faceTotal = 44;
    const ne3_val_fd_ctrl sent = sim_fd_control()->ctrl;
    EXPECT_EQ(0, std::memcmp(&wanted, &sent, offsetof(ne3_val_fd_ctrl, mask)));
    EXPECT_EQ(0x55555555U, sent.windowBits);
    EXPECT_TRUE(!sent.mask && !sent.windows);
    EXPECT_TRUE(sim_open_prm("fd")->prm0 == 1 && sim_open_prm("fd")->prm1 == 1);

    context.fdCtrl = {0, 1, 2, 3, 4, 5, 6, 7, 8};
    ne3_val_fd_ctrl all{};
    fd_apply_settings(context.fdCtrl, all);
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
    const std::vector<std::vector<VaFdWindow>> lists = {
        {{1, 0, 0, 0, 9999, 9999}},
        {{1, 0, 5000, 5000, 4999, 4999}, {0, 1, 0, 0, 9999, 9999}},
        {{1, 0, 0, 0, 624, 9999}, {1, 1, 0, 0, 9999, 833}},
        {{1, 0, 0, 0, 625, 1112}, {1, 1, 9374, 8888, 625, 1111}},
        {{1, 0, 100, 7000, 3000, 2500}, {1, 1, 3333, 0, 1, 9999}, {1, 2, 2500, 2500, 5000, 834}},
        {},
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
    start(window(4, 0, 9999, 9999, 0, false));
    const auto control = sim_fd_control();
    ASSERT_TRUE(control->mask);
    EXPECT_EQ(1, control->ctrl.maskEnable);
    for (int row = 0; row < 8; ++row)
        EXPECT_TRUE(control->mask->cells[2 * row] == 0xff &&
                    control->mask->cells[2 * row + 1] == 0x7f);
    EXPECT_EQ(0, control->mask->cells[16] | control->mask->cells[17]);
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
        std::int32_t x0 = -1;
        std::int32_t y0 = -1;
        std::int32_t x1 = 9999;
        std::int32_t y1 = 9999;
        EXPECT_EQ(0, va_fd_watchframe_checkRange(&x0, &y0, &x1, &y1, frame.width, frame.height));
        EXPECT_TRUE(x0 == frame.min_x && y0 == frame.min_y && x1 == frame.max_x &&
                    y1 == frame.max_y)
            << frame.width;
        x0 = x1 = frame.min_x + 1;
        y0 = y1 = frame.min_y + 1;
        va_fd_watchframe_checkRange(&x0, &y0, &x1, &y1, frame.width, frame.height);
        EXPECT_TRUE(x0 == frame.min_x + 1 && y1 == frame.min_y + 1);
    }
    std::int32_t same = 5;
    EXPECT_EQ(
        "va_fd_watchframe_checkRange: input resolution is incorrect(1600x1200).\n", stdout_of([&] {
            EXPECT_EQ(-1, va_fd_watchframe_checkRange(&same, &same, &same, &same, 1600, 1200));
        }));
    EXPECT_EQ(5, same);
}

TEST_F(VaFdTest, SendsDetectionWindowsInPixels)
{
    const string settings = window(3, 0, 9999, 0, 9999, true) +
                            window(5, 6000, 4000, 1000, 2000, true) +
                            window(6, 0, 9999, 0, 9999, false);
    const ne3_val_fd_window_list hd{{{0, 0, 1919, 1079}, {768, 108, 1152, 216}}};
    const ne3_val_fd_window_list sxga{{{0, 32, 1279, 992}, {512, 102, 768, 204}}};
    const struct {
        int width, height;
        const ne3_val_fd_window_list *list; // null: the frame is not known
    } cases[] = {{1920, 1080, &hd}, {1280, 1024, &sxga}, {1600, 1200, nullptr}};
    for (const auto &test : cases) {
        open_library();
        use(test.width, test.height);
        const string output = start(settings);
        const auto control = sim_fd_control();
        EXPECT_EQ(1, control->ctrl.maskEnable);
        ASSERT_EQ(test.list != nullptr, control->windows.has_value());
        EXPECT_EQ(test.list ? 3U : 0U, control->ctrl.windowBits);
        EXPECT_TRUE(!test.list ||
                    std::memcmp(test.list, &*control->windows, sizeof *test.list) == 0);
        const string line = "input resolution is incorrect(1600x1200).\n";
        EXPECT_EQ(!test.list, output.find(line, output.find(line) + 1) != string::npos);
    }
}

TEST_F(VaFdTest, TakesTheFirstWindowsByNumber)
{
    string settings;
    for (int number = 0; number < 25; ++number) // and 37 is beyond the numbers that are read
        settings += window(number == 24 ? 37 : number, number, 9999, 0, 9999, false);
    for (int number = 24; number < 30; ++number)
        settings += window(number, number, 9999, 0, 9999, true);
    files.store(settings);
    va_fd_getConf(&context);
    for (int slot = 0; slot < 20; ++slot)
        EXPECT_TRUE(context.fdWatchWindows[slot].enabled &&
                    context.fdWatchWindows[slot].id == slot &&
                    context.fdWatchWindows[slot].x == slot);
    for (int slot = 0; slot < 10; ++slot)
        EXPECT_EQ(slot < 6, context.fdDetectWindows[slot].enabled);
    EXPECT_EQ(24, context.fdDetectWindows[0].x);
    EXPECT_EQ(0, context.fdDetectWindows[0].id);

    settings.clear();
    for (int number = 0; number < 12; ++number)
        settings += window(number, number, 9999, 0, 9999, true);
    files.store(settings);
    va_fd_getConf(&context);
    EXPECT_EQ(9, context.fdDetectWindows[9].x);
    EXPECT_EQ(0, context.fdWatchWindows[0].enabled);
}

TEST_F(VaFdTest, ReportsEachRefusedCall)
{
    const struct {
        const char *function;
        const char *log;
    } cases[] = {
        {"ne3_val_fd_open", "VA: fd_open failed.\n"},
        {"ne3_val_fd_start", "VA: start failed.\n"},
        {"ne3_val_fd_get_ctrl", "VA: ne3_val_fd_get_ctrl fail. errno = A1\n"},
        {"ne3_val_fd_get_area_data_mem", "VA: fd_get_area_data_mem failed. errno = A1\n"},
        {"ne3_val_fd_set_ctrl", "VA: ne3_val_fd_set_ctrl fail. errno = A1\n"},
    };
    for (const auto &test : cases) {
        open_library();
        sim_fail(test.function, 1, 0xa1);
        stdout_of(
            [&] { EXPECT_EQ(test.log, log_of([&] { EXPECT_EQ(-1, va_fd_init(&context)); })); });
        EXPECT_EQ(test.function, sim_calls().back());
    }
    const std::size_t calls = sim_calls().size();
    EXPECT_EQ(0, va_fd_updateConfig(&context));
    EXPECT_EQ(calls, sim_calls().size());
}

TEST_F(VaFdTest, RelaysFacesUnchanged)
{
    LocalStream fd("fd", 1024);
    context.fdServer = fd.server;
    std::vector<char> faces(37 * 28);
    for (std::size_t i = 0; i < faces.size(); ++i)
        faces[i] = static_cast<char>(i * 3);
    const string refused = "Can't write data to client.sck_path=fd\n";
    const struct {
        int count;
        const char *array;
        string output;
        std::size_t length; // of the record, 0: none
    } cases[] = {{0, faces.data(), "", 0},
                 {36, faces.data(), "", 1008},
                 {37, faces.data(), refused, 0},
                 {-1, faces.data(), "", 0},
                 {1, nullptr, "", 0},
                 {INT_MAX, faces.data(), refused, 0}};
    for (const auto &test : cases) {
        ne3_val_fd_result result{};
        result.faces = test.array;
        result.faceNum = test.count;
        EXPECT_EQ(test.output, stdout_of([&] { va_fd_processData(&context, &result); }));
        std::vector<string> wanted;
        if (test.length)
            wanted.emplace_back(faces.data(), test.length);
        EXPECT_TRUE(wanted == fd.records());
    }
}

} // namespace
