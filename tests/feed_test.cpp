#include "platform/sim/feed.h"
#include "platform/sim/feed_lines.h"
#include "tests/support/capture.h"
#include "tests/support/client_data.h"
#include "tests/support/daemon.h"
#include "tests/support/store_file.h"
#include "tests/support/wait.h"

#include <atomic>
#include <cstring>
#include <fstream>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace
{

using namespace va::sim;
using std::string;
using Words = std::vector<std::uint32_t>;

template <class Entry>
Words words_of(const Entry &entry)
{
    Words words(sizeof entry / sizeof(std::uint32_t));
    std::memcpy(words.data(), &entry, sizeof entry);
    return words;
}

string repeated(const string &line, std::size_t times)
{
    string text;
    while (times-- > 0)
        text += line;
    return text;
}

TEST(FeedLinesTest, ScaleThePlacesAndLeaveOutWhatIsWrong)
{
    FeedLines feed("cam", {1280, 720});
    std::vector<FeedPicture> pictures;
    const auto log_of = [&](const string &text) {
        return stderr_of([&] { pictures = feed.take(text); });
    };
    EXPECT_EQ("", log_of("frame 640 360\n\nobject 0x5 moving -10 20 101 50 # left half\n"
                         "face 9 1 2 30 40\nta 1 2 3 -1\npicture 77\nobject 6 19 0 0 8 8\npict"));
    ASSERT_EQ(1U, pictures.size());
    EXPECT_EQ((Words{5, 3, 0U - 20, 40, 202, 100, 81, 90, 0, 77}),
              words_of(pictures[0].seen.objects.at(0)));
    EXPECT_EQ((Words{9, 2, 4, 60, 80, 100, 0}), words_of(pictures[0].faces.at(0)));
    EXPECT_EQ((AlarmWords{1, 2, 3, 0xffffffff}), pictures[0].alarms.at(0));
    EXPECT_TRUE(pictures[0].seen.jump);
    EXPECT_EQ("", log_of("ure\npicture\njump\npicture\n"));
    ASSERT_EQ(3U, pictures.size());
    EXPECT_EQ((Words{6, 19, 0, 0, 16, 16, 8, 8, 0, 0}), words_of(pictures[0].seen.objects.at(0)));
    EXPECT_FALSE(pictures[0].seen.jump || pictures[1].seen.jump);
    EXPECT_TRUE(pictures[2].seen.jump && pictures[1].seen.objects.empty());

    const std::pair<string, string> wrong[] = {{"object 1 4 0 0 1 1", "not understood"},
                                               {"object 1 3 0 0 1 1 1", "not understood"},
                                               {"object 1 3 65536 0 1 1", "not understood"},
                                               {"face 1 0 0 1", "not understood"},
                                               {"frame 0 1", "not understood"},
                                               {"picture 1 2", "not understood"},
                                               {"picture" + string(1, '\0'), "not understood"},
                                               {"picture" + string(249, ' '), "too long"}};
    for (const auto &[line, problem] : wrong) {
        feed.end(); // each writer's first is reported, and it is not the scene's frame any more
        EXPECT_NE(string::npos, log_of(line + "\n").find(problem)) << line;
        EXPECT_TRUE(pictures.empty());
        EXPECT_EQ("", log_of(line + "\npicture" + string(248, ' ') + "\n"));
        ASSERT_EQ(1U, pictures.size());
        EXPECT_TRUE(pictures[0].seen.jump && pictures[0].seen.objects.empty()) << line;
    }
    feed.end();
    const string full =
        log_of("frame 1 1\n" + repeated("object 1 3 9 -9 9 9\n", 1001) +
               repeated("face 1 0 0 1 1\n", 37) + repeated("ta 0 0 0 0\n", 5) + "picture\n");
    EXPECT_EQ("sim: feed cam: ignored (reported once): too many: object 1 3 9 -9 9 9\n", full);
    EXPECT_TRUE(pictures.at(0).seen.objects.size() == 1000 && pictures[0].faces.size() == 36 &&
                pictures[0].alarms.size() == 4);
    EXPECT_EQ((Words{1, 3, 11520, 0U - 6480, 11520, 6480, 17280, 0U - 3240, 0, 0}),
              words_of(pictures[0].seen.objects[999]));
}

TEST(FeedSourceTest, KeepsTheNewestAndWhetherTheNumbersJumped)
{
    static std::atomic<int> wakes = 0;
    const TempDir directory;
    const string path = directory.file("feed");
    ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
    const auto feed = make_feed(path, {9, 9}, [] { ++wakes; });
    feed->start();
    EXPECT_EQ(never, feed->due().objects);
    std::ofstream fifo(path);
    for (int picture = 0; picture < 40; ++picture)
        fifo << "object 1 3 0 0 1 1\npicture " << picture << "\n" << std::flush;
    ASSERT_TRUE(wait_until([] { return wakes == 40; }));
    EXPECT_GT(never, feed->due().objects);
    for (std::uint32_t picture = 8; picture < 40; ++picture) {
        const auto seen = feed->take_objects();
        ASSERT_TRUE(seen && seen->objects.at(0).picture == picture);
        EXPECT_EQ(picture == 8, seen->jump); // in the first one, which is dropped
    }
    EXPECT_FALSE(feed->take_objects() || feed->take_faces() || feed->take_alarm());
}

// A daemon whose scene is read from "feed", with a line down the middle and an area at the right.
struct FeedTest : testing::Test {
    FeedTest()
    {
        files.store(window("ObjectDetection.O0.", 5000, 9999, 5000, 9999) +
                    lines("CrossLine.C0.", {"StartX=5000", "StartY=0", "EndX=5000", "EndY=9999"}));
        files.write("scene", "feed feed\n");
    }

    DaemonFiles files;
};

TEST_F(FeedTest, MakesResultsOfWholePictures)
{
    Daemon daemon(files, {"-of"});
    Client od(files.file("run/od"));
    Client vmf(files.file("run/vmf"));
    Client fd(files.file("run/fd"));
    for (const char *stream : {"od", "vmf", "fd"})
        ASSERT_TRUE(daemon.wait_for_output(string("run/") + stream + ": accept client"));
    EXPECT_TRUE(daemon.wait_for_log("sim: feed feed: no writer\n"));
    {
        std::ofstream feed(files.file("feed"));
        feed << "object 6 3 0 0 24 24\npicture 5\n" << std::flush;
        EXPECT_EQ(words({6, 3, 0, 0, 24, 24, 12, 12, 0, 5}), od.next());
        // Number 6 is another one behind the jump: the first alarm is that of the area.
        feed << "jump\nobject 6 3 1000 0 24 24\npicture\nobject 6 3 1000 600 24 24\npicture\n"
             << "object 6 3 0 600 24 24\npicture\nface 7 1 2 3 4\npicture\n"
             << "object 3 3 0 0 24 24\nobject 4 3 0 0 24 2" << std::flush;
        EXPECT_EQ(words({1, 0, 0, 0}), vmf.next());
        EXPECT_EQ(words({0, 1, 0, 0}), vmf.next());
        EXPECT_EQ(words({7, 1, 2, 3, 4, 100, 0}), fd.next());
    }
    EXPECT_TRUE(daemon.wait_for_log("no writer\n", 2));
    std::ofstream feed(files.file("feed"));
    feed << "4\nobject 2 3 0 0 24 24\npicture\n" << std::flush; // of this writer alone
    EXPECT_EQ(words({6, 3, 1000, 0, 24, 24, 1012, 12, 1, 0}), od.next());
    EXPECT_EQ(words({6, 3, 1000, 600, 24, 24, 1012, 612, 2, 0}), od.next());
    EXPECT_EQ(words({6, 3, 0, 600, 24, 24, 12, 612, 3, 0}), od.next());
    EXPECT_EQ(words({2, 3, 0, 0, 24, 24, 12, 12, 4, 0}), od.next());
    EXPECT_TRUE(daemon.stop());
}

TEST_F(FeedTest, ReadsASocketAgainAndAgain)
{
    const string path = files.file("feed");
    files.write("feed", "not a feed");
    Daemon daemon(files, {"-t"});
    Client ta(files.file("run/ta"));
    EXPECT_TRUE(daemon.wait_for_log("sim: feed feed: neither a FIFO nor a socket\n"));
    const Listener listener(path);
    for (std::uint32_t round = 0; round < 3; ++round) {
        const Fd writer = listener.accept();
        const string text = "ta 1 2 3 " + std::to_string(round) + "\npicture\n";
        EXPECT_EQ(static_cast<ssize_t>(text.size()),
                  send(writer.get(), text.data(), text.size(), MSG_NOSIGNAL));
        EXPECT_EQ(words({1, 2, 3, round}), ta.next());
    }
    EXPECT_TRUE(daemon.stop());
}

} // namespace
