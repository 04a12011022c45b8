#include "tests/support/capture.h"
#include "tests/support/client_data.h"
#include "tests/support/daemon.h"
#include "tests/support/store_file.h"
#include "tests/support/wait.h"
#include "tools/va_picture/backdrop.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <numeric>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace
{

using namespace va;
using namespace va::picture;
using std::chrono::milliseconds;

// What a page is given by a file.
Json given_by(const std::string &path)
{
    constexpr std::string_view begin = "takeMessages(", end = ");\n";
    const std::string text = read_file(path);
    EXPECT_TRUE(text.starts_with(begin) && text.ends_with(end)) << path;
    return Json::parse(text.substr(begin.size(), text.size() - begin.size() - end.size()), nullptr,
                       false);
}

// The messages of one kind in the order of the file; of a state the newest.
std::vector<Json> messages_in(const Json &given, const std::string &topic, bool retained)
{
    std::vector<Json> found;
    for (const Json &each : given["messages"]) {
        if (each["topic"].get<std::string>().find(topic) != std::string::npos &&
            each["retained"] == retained)
            found.push_back(each);
    }
    return found;
}

Json state_in(const Json &given, const std::string &topic)
{
    const std::vector<Json> all = messages_in(given, topic, true);
    return all.empty() ? Json() : all.back()["payload"];
}

TEST(MessageFileTest, HasWhatAPageNeedsAndLosesNothing)
{
    const TempDir dir;
    MessageFile file(dir.file("scene.html"), 1);
    file.state("gone", R"("there")");
    file.state("never", "");
    file.state("state", "1");
    file.state("state", "1"); // as before: no message
    file.write_whole();
    // Follows as the page does, and looks less often than is written.
    std::set<std::uint64_t> taken{0};
    int wholes = 0;
    const auto take = [&](const Json &given) {
        for (const Json &each : given["messages"])
            taken.insert(each["n"].get<std::uint64_t>());
    };
    const auto news = [&] { return given_by(dir.file("scene.new.js")); };
    const auto look = [&] {
        if (news()["after"] > *taken.rbegin()) {
            ++wholes;
            take(given_by(dir.file("scene.js")));
        }
        take(news());
    };
    for (int i = 0; i < 150; ++i) { // every 40 ms: six seconds
        file.set_time(milliseconds(40 * i));
        if (i % 5 != 0)
            file.frame("frame", std::to_string(i), {});
        file.event(i < 149 ? "event" : "both", std::to_string(i), i == 149);
        file.write_when_due();
        if (i % 5 == 0)
            look();
    }
    file.state("gone", "");
    file.write_whole();
    look();
    EXPECT_LE(wholes, 1) << "loads more than it needs";

    const Json whole = given_by(dir.file("scene.js"));
    EXPECT_TRUE(state_in(whole, "never").is_null() && state_in(whole, "gone").is_null());
    EXPECT_EQ(1, state_in(whole, "state"));
    EXPECT_EQ(149, state_in(whole, "both"));
    const std::vector<Json> events = messages_in(whole, "event", false);
    EXPECT_EQ(99U, events.size()); // and the one that is a state too
    EXPECT_EQ(50, events.front()["payload"]);
    EXPECT_EQ(messages_in(whole, "both", false)[0]["n"], messages_in(whole, "both", true)[0]["n"]);
    const std::vector<Json> frames = messages_in(whole, "frame", false);
    EXPECT_EQ(99, frames.front()["payload"]); // two seconds before the last one
    EXPECT_EQ(149, frames.back()["payload"]);
    const Json last = whole["messages"].back()["n"];
    EXPECT_EQ(last, *taken.rbegin());
    EXPECT_EQ(taken.size(), *taken.rbegin() + 1) << "a number is missing";

    // At rest there are no news, and a sign of life each second.
    EXPECT_LE(file.due(), milliseconds(6960));
    file.set_time(file.due());
    file.write_when_due();
    const std::string before = read_file(dir.file("scene.new.js"));
    EXPECT_EQ(last, news()["after"]);
    EXPECT_TRUE(news()["messages"].empty());
    file.frame("frame", "9", {});
    file.set_time(file.due() - milliseconds(1)); // 20 times a second at most
    file.write_when_due();
    EXPECT_EQ(before, read_file(dir.file("scene.new.js")));
    file.set_time(file.due());
    file.write_when_due();
    EXPECT_EQ(*taken.rbegin() + 1, news()["messages"][0]["n"]);
}

// What stands at byte 24 is the picture.
std::string jpeg(const std::string &number, const std::string &content)
{
    return "\xff\xd8\xff\xfe" + std::string("\0\x14", 2) + "picture " + number + content +
           "\xff\xd9";
}

void put_still(const std::string &path, const std::string &content)
{
    std::ofstream(path + ".new", std::ios::binary) << content;
    std::filesystem::rename(path + ".new", path);
}

TEST(StillTest, IsShownWithItsFrame)
{
    const TempDir dir;
    const std::string path = dir.file("still.jpg");
    put_still(path, jpeg("0000000001", "O"));
    MessageFile file(dir.file("scene.html"), 1);
    Backdrop backdrop(path, "still", file);
    std::string order;
    const auto show = [&] { // what is new, in its order
        file.write_whole();
        for (const Json given = given_by(dir.file("scene.js"));
             const Json &each : given["messages"]) {
            const std::string text = each.contains("file")
                                         ? read_file(dir.file(each["file"])).substr(24, 1)
                                         : each["payload"].dump();
            if (order.find(text) == std::string::npos)
                order += text;
        }
    };
    std::vector<std::uint32_t> many(40);
    std::iota(many.begin(), many.end(), 10);
    const struct {
        int ms;
        std::string still;                 // empty: no new one
        std::vector<std::uint32_t> frames; // behind it
        const char *shown;                 // more than before
        const char *why;
    } steps[] = {
        {0, "", {1}, "1", "no still came yet, but one lay there before"},
        {100, jpeg("4294967295", "A"), {2, 3, 4}, "", "stills and frames wait for each other"},
        {120, "", {}, "2A3", ""},
        {200, jpeg("0000000002", "B"), {}, "", ""},
        {349, "", {}, "", ""},
        {350, "", {7}, "4B", "there were no objects in it"},
        {2180, "\xff\xd8 the first half", {}, "", ""},
        {2200, "\xff\xd8 the next half", {}, "", ""},
        {2221, "", {8}, "7null8", "no still came for two seconds"},
        {2300, jpeg("0000000004", "C"), {95, 6}, "C95", "what sees the video has begun anew"},
        {2300, "", many, "6", "forty frames wait, no more"},
    };
    std::string expected;
    const std::string said = stderr_of([&] {
        for (const auto &[ms, still, frames, shown, why] : steps) {
            if (!still.empty())
                put_still(path, still);
            backdrop.look(milliseconds(ms));
            for (const std::uint32_t frame : frames)
                backdrop.frame("od", std::to_string(frame), frame - 4); // the pictures wrap around
            show();
            EXPECT_EQ(expected += shown, order) << why;
        }
    });
    EXPECT_TRUE(said.ends_with("no whole JPEG\n") && std::ranges::count(said, '\n') == 1) << said;
    for (int i = 0; i < 20; ++i)
        file.still("still", "D");
    EXPECT_FALSE(std::filesystem::exists(dir.file("scene.8.jpg"))) << "files for ever";
}

TEST(PictureTest, ShowsADaemonAndACapture)
{
    const DaemonFiles files;
    files.write("scene", "od_interval 100\n"
                         "object 7 dynamic 192x108 from 100,540 to 1900,540 between 0 60000\n");
    Program picture(VA_PICTURE, files.path(), {"-d", "run", "scene.html"}, "picture");
    const auto shows = [&](const std::string &topic, const std::string &text) {
        return wait_until([&] {
            return state_in(given_by(files.file("scene.js")), topic).dump().find(text) !=
                   std::string::npos;
        });
    };
    ASSERT_TRUE(wait_until([&] { return std::filesystem::exists(files.file("scene.js")); }));
    EXPECT_TRUE(shows("va/available", "waiting for the daemon"));
    const std::string page = read_file(files.file("scene.html"));
    EXPECT_TRUE(page.find("takeMessages") != std::string::npos &&
                page.find(" src=\"") == std::string::npos &&
                page.find("stylesheet") == std::string::npos);
    Daemon daemon(files, {"-o"});
    EXPECT_TRUE(shows("va/available", "online") && shows("va/scene", "1920"));
    const auto frames = [&] { return messages_in(given_by(files.file("scene.js")), "/od", false); };
    EXPECT_TRUE(wait_until([&] { return frames().size() > 15; })) << "of two seconds, all of them";
    EXPECT_TRUE(daemon.stop() && shows("va/available", "the daemon has gone"));
    picture.signal(SIGTERM);
    EXPECT_TRUE(picture.wait_for_exit() && shows("va/available", "va_picture has ended"));

    write_capture(files.file("capture"));
    ASSERT_EQ(0, mkfifo(files.file("pipe.html").c_str(), 0600));
    const std::tuple<std::vector<std::string>, int, const char *> rows[] = {
        {{"-r", "capture", "--pace", "0", "scene.html"}, RECORDS_CAME, ""},
        {{"scene.svg"}, USED_WRONGLY, "scene.svg does not end in .html"},
        {{"pipe.html"}, FAILED, "pipe.html"},
    };
    for (const auto &[arguments, status, text] : rows) {
        Program program(VA_PICTURE, files.path(), arguments);
        EXPECT_TRUE(program.wait_for_exit(status) && program.wait_for_log(text)) << text;
    }
    EXPECT_TRUE(shows("va/available", "from a capture") && frames().size() == 1U);
}

} // namespace
