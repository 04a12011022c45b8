#include "tests/support/store_file.h"
#include "tests/support/va_fixture.h"
#include "va/drivers.h"
#include "va/fd_control.h"

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
        sim_set_defaults({.fd = old});
        files.store(settings);
        va_fd_getConf(&context);
        EXPECT_EQ(0, run([&] { return va_fd_init(&context); }));
        return sim_state().fd.value_or(SimFdControl{});
    }
};

string face_window(int number, int left, int right, int top, int bottom, bool detected)
{
    const string key = "FaceDetection.F" + std::to_string(number) + ".";
    return window(key, left, right, top, bottom) +
           lines(key, {detected ? "WindowType=Detected" : "WindowType=watch"});
}

TEST_F(VaFdTest, SendsTheSettingsThatAreSet)
{
    ne3_val_fd_ctrl old;
    std::memset(&old, 0x55, sizeof old);
    const ne3_val_fd_ctrl sent =
        start(lines("", {"Properties.FaceDetection.Flip=on", "VideoAnalytics.FD.FaceTotal=300",
                         "FaceDetection.MaxDetectionSize=959"}),
              old)
            .ctrl;
    const ne3_val_fd_ctrl wanted{0x55555555, 1,    0,   0x55, 1,  44, 0x55,
                                 0x55,       0x55, 120, 959,  {}, 0,  {}};
    constexpr std::size_t numbers = offsetof(ne3_val_fd_ctrl, mask);
    EXPECT_EQ(0, std::memcmp(&wanted, &sent, numbers));
    EXPECT_TRUE(sent.windowBits == 0x55555555 && !sent.mask && !sent.windows);
    EXPECT_EQ("init fd.\n==> old fd thresRatio = 85\n==>fd thresRatio=85\n", output);
    EXPECT_TRUE(sim_state().fd_prm->prm0 == 1 && sim_state().fd_prm->prm1 == 1);

    ne3_val_fd_ctrl all{};
    fd_apply_settings({0, 1, 2, 3, 4, 50, 6, 7, 8}, all);
    const ne3_val_fd_ctrl wanted_all{0, 0, 0, 1, 2, 6, 29, 8, 7, 3, 4, {}, 0, {}};
    EXPECT_EQ(0, std::memcmp(&wanted_all, &all, numbers));
    // Towards 0 from 54 on; what would be negative is the largest ratio.
    const std::pair<int, int> ratios[] = {{51, 29}, {52, 28}, {109, 0}, {110, 64}};
    for (const auto &[sensitivity, ratio] : ratios) {
        fd_apply_settings({0, -1, -1, -1, -1, sensitivity, -1, -1, -1}, all);
        EXPECT_EQ(ratio, all.thresRatio) << sensitivity;
    }
}

TEST_F(VaFdTest, ChecksFaceSizesOnlyWhenAsked)
{
    const struct {
        int method, min, max, sent;
    } cases[] = {
        {1, 120, 960, 1}, {1, 960, 960, 1}, {1, 119, 960, 0}, {1, 120, 961, 0},
        {1, 121, 120, 0}, {0, 1, 1, 0},     {2, 1, 1, 2},     {257, 1, 1, 0},
    };
    for (const auto &test : cases) {
        ne3_val_fd_ctrl ctrl{};
        fd_apply_settings({0, -1, test.method, test.min, test.max, -1, -1, -1, -1}, ctrl);
        EXPECT_EQ(test.sent, ctrl.sizeChkMtd) << test.method << " " << test.min;
    }
}

TEST_F(VaFdTest, MarksTheWatchedCells)
{
    // Place and size are cut to cells each; a window that is not in use, one too narrow for a
    // column or a row.
    const VaFdWindow windows[] = {{1, 0, 5600, 5500, 4300, 3900},
                                  {0, 1, 0, 0, 9999, 9999},
                                  {1, 2, 0, 0, 624, 9999},
                                  {1, 3, 0, 0, 9999, 833}};
    const ne3_val_fd_mask mask = fd_watch_mask(windows, true);
    for (int byte = 0; byte < 24; ++byte)
        EXPECT_EQ(byte % 2 == 1 && byte >= 8 && byte < 14 ? 0x3f : 0, mask.cells[byte]) << byte;
    EXPECT_TRUE(fd_watch_mask(windows, false).cells[11] == 0 &&
                fd_watch_mask(windows, false).cells[19] == 0x3f);
    const SimFdControl sent = start(face_window(4, 0, 9999, 9999, 0, false));
    ASSERT_TRUE(sent.mask);
    EXPECT_EQ(1, sent.ctrl.maskEnable);
    for (int i = 0; i < 18; ++i)
        EXPECT_EQ(i >= 16 ? 0 : i % 2 == 0 ? 0xff : 0x7f, sent.mask->cells[i]);
}

TEST_F(VaFdTest, SendsDetectionWindowsInPixelsOfTheFrame)
{
    const string settings = face_window(3, 0, 9999, 0, 9999, true) +
                            face_window(5, 6000, 4000, 1000, 2000, true) +
                            face_window(6, 0, 9999, 0, 9999, false);
    const struct {
        int width, height;
        std::optional<ne3_val_fd_window_list> list; // nothing: the frame is not known
    } cases[] = {{1920, 1080, {{{{0, 0, 1919, 1079}, {768, 108, 1152, 216}}}}},
                 {1280, 1024, {{{{0, 32, 1279, 992}, {512, 102, 768, 204}}}}},
                 {1600, 1200, {}}};
    const string line = "va_fd_watchframe_checkRange: input resolution is incorrect(1600x1200).\n";
    for (const auto &test : cases) {
        use_sensor(test.width, test.height);
        const SimFdControl sent = start(settings);
        EXPECT_EQ(1, sent.ctrl.maskEnable);
        EXPECT_EQ(test.list ? 3U : 0U, sent.ctrl.windowBits);
        ASSERT_EQ(test.list.has_value(), sent.windows.has_value());
        EXPECT_TRUE(!test.list || same_bytes(*test.list, *sent.windows)) << test.width;
        EXPECT_EQ(!test.list, output.find(line + line) != string::npos) << output;
    }
}

TEST_F(VaFdTest, ClampsToWhatAFrameAllows)
{
    const std::array<std::int32_t, 6> frames[] = {// width, height; what is left of too much
                                                  {2736, 2200, 88, 140, 2648, 2060},
                                                  {720, 576, 0, 0, 720, 576}};
    for (const auto &[width, height, left, top, right, bottom] : frames) {
        for (const int inside : {-1, 1}) {
            std::array rect{left + inside, top + inside, right - inside, bottom - inside};
            std::array wanted{left, top, right, bottom};
            if (inside == 1)
                wanted = rect;
            EXPECT_EQ(0, va_fd_watchframe_checkRange(&rect[0], &rect[1], &rect[2], &rect[3], width,
                                                     height));
            EXPECT_EQ(wanted, rect) << width;
        }
    }
}

TEST_F(VaFdTest, TakesTheFirstWindowsByNumber)
{
    for (const int watched : {25, 18}) { // of the 30 windows that are read
        string settings;
        for (int number = 0; number <= 30; ++number)
            settings += face_window(number, number, 9999, 0, 9999, number >= watched);
        start(settings);
        const auto expect_slots = [](const auto &slots, int used, int first) {
            for (int slot = 0; slot < static_cast<int>(std::size(slots)); ++slot) {
                ASSERT_EQ(slot < used, slots[slot].enabled);
                EXPECT_TRUE(slot >= used ||
                            (slots[slot].id == slot && slots[slot].x == first + slot));
            }
        };
        expect_slots(context.fdWatchWindows, watched, 0);
        expect_slots(context.fdDetectWindows, 30 - watched, watched);
    }
}

} // namespace
