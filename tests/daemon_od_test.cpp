#include "tests/support/daemon.h"

#include <cstring>
#include <fstream>
#include <functional>

#include <gtest/gtest.h>

namespace
{

using std::string;
using Words = std::vector<std::uint32_t>;

// An object of the stand-in: its number is the first word.
constexpr std::size_t object_words = 10;
constexpr std::size_t result_number = 8;

// Empty at the end of the stream.
Words next_record(const Client &client)
{
    const string record = client.next().value_or("");
    Words words(record.size() / sizeof(std::uint32_t));
    std::memcpy(words.data(), record.data(), words.size() * sizeof(std::uint32_t));
    return words;
}

// Reads on until a record is as wanted, of which every `step`th word is looked at.
bool comes(const Client &client, const Words &wanted, std::size_t step)
{
    for (int count = 0; count < 2000; ++count) {
        const Words record = next_record(client);
        Words found;
        for (std::size_t i = 0; i < record.size(); i += step)
            found.push_back(record[i]);
        if (found == wanted)
            return true;
    }
    return false;
}

TEST(DaemonOdTest, ShowsTheEffectOfEachChange)
{
    const DaemonFiles files;
    files.write("scene", "od_interval 20\nperiod 400\n"
                         "object 7 dynamic 192x108 from 480,540 to 480,540 between 0 400\n"
                         "object 8 dynamic 384x216 from 1000,540 to 1400,540 between 0 400\n");
    const Daemon daemon(files, {"-o"});
    const Client od(files.file("run/od"));
    const Client vmf(files.file("run/vmf"));
    const auto reconfigure = [&](const string &settings) {
        files.store(settings);
        files.reconfigure();
    };
    EXPECT_TRUE(comes(od, {7, 8}, object_words));

    reconfigure("VMDWindow.NonDetect.V2.Left=0\nVMDWindow.NonDetect.V2.Right=4000\n"
                "VMDWindow.NonDetect.V2.Top=0\nVMDWindow.NonDetect.V2.Bottom=9999\n");
    EXPECT_TRUE(comes(od, {8}, object_words));

    reconfigure("VMDWindow.MaxDetectionSize=200x200\n");
    EXPECT_TRUE(comes(od, {7}, object_words));

    // The line is the first filter whatever the numbers, the area the only one of its code.
    reconfigure("ObjectDetection.O0.Left=1000\nObjectDetection.O0.Right=4000\n"
                "ObjectDetection.O0.Top=1000\nObjectDetection.O0.Bottom=9000\n"
                "ObjectDetection.O0.Type=1\nCrossLine.C2.StartX=6250\nCrossLine.C2.StartY=0\n"
                "CrossLine.C2.EndX=6250\nCrossLine.C2.EndY=9999\n");
    EXPECT_TRUE(comes(vmf, {0, 0, 0, 1}, 1));
    EXPECT_TRUE(comes(vmf, {0, 1, 0, 1}, 1));
}

TEST(DaemonOdTest, LosesNoRecordInAReconfigurationStorm)
{
    const DaemonFiles files;
    files.write("scene", "od_interval 2\nperiod 1000\n"
                         "object 7 dynamic 192x108 from 480,540 to 980,540 between 0 1000\n");
    const Daemon daemon(files, {"-o"});
    const Client od(files.file("run/od"));
    std::uint32_t last = next_record(od).at(result_number);
    const auto expect_next = [&] { EXPECT_EQ(++last, next_record(od).at(result_number)); };
    std::ofstream control(files.file("run/ctrl"));
    for (int line = 0; line < 1000; ++line) {
        if (line % 50 == 0)
            files.store("VideoAnalytics.OD.DiffImgNum=" + std::to_string(1 + line / 50 % 15));
        control << "reconfig\n" << std::flush;
        if (line % 10 == 0)
            expect_next();
    }
    // The storm was seen, and left the stream whole.
    ASSERT_TRUE(control.good());
    ASSERT_TRUE(daemon.wait_for_log("diffImgNum=5"));
    for (int count = 0; count < 100; ++count)
        expect_next();
}

} // namespace
