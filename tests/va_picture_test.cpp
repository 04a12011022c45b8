#include "client/capture.h"
#include "tests/support/capture.h"
#include "tests/support/client_data.h"
#include "tests/support/daemon.h"
#include "tests/support/store_file.h"
#include "tests/support/wait.h"
#include "tools/va_picture/backdrop.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
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

std::vector<std::uint64_t> numbers_of(const std::vector<Json> &messages)
{
    std::vector<std::uint64_t> numbers;
    for (const Json &each : messages)
        numbers.push_back(each["n"]);
    return numbers;
}

// Follows as the page does, and looks less often than is written.
struct Follower {
    const TempDir &dir;
    std::uint64_t last = 0;
    std::set<std::uint64_t> taken{};
    int wholes = 0;

    void look()
    {
        const Json news = given_by(dir.file("scene.new.js"));
        if (news["after"] > last) {
            ++wholes;
            take(given_by(dir.file("scene.js")));
        }
        take(news);
    }
    void take(const Json &given)
    {
        for (const Json &each : given["messages"]) {
            taken.insert(each["n"].get<std::uint64_t>());
            last = std::max(last, each["n"].get<std::uint64_t>());
        }
    }
};

TEST(MessageFileTest, HasWhatAPageNeedsAndLosesNothing)
{
    const TempDir dir;
    MessageFile file(dir.file("scene.html"), 1);
    file.state("gone", R"("there")");
    file.state("never", "");
    file.state("state", "1");
    file.state("state", "1"); // as before: no message
    file.write_whole();
    Follower follower{dir};
    for (int i = 0; i < 150; ++i) { // every 40 ms: six seconds
        file.set_time(milliseconds(40 * i));
        if (i % 5 != 0)
            file.frame("frame", std::to_string(i), {});
        file.event(i < 149 ? "event" : "both", std::to_string(i), i == 149);
        file.write_when_due();
        if (i % 5 == 0)
            follower.look();
    }
    file.state("gone", "");
    file.write_whole();
    follower.look();
    EXPECT_LE(follower.wholes, 1) << "loads more than it needs";

    const Json whole = given_by(dir.file("scene.js"));
    EXPECT_EQ(0, whole["after"]);
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
    const auto numbers = numbers_of(whole["messages"]);
    EXPECT_TRUE(std::ranges::is_sorted(numbers));
    EXPECT_EQ(numbers.back(), follower.taken.size()) << "a number is missing";

    // At rest there are no news, and a sign of life each second.
    EXPECT_LE(file.due(), milliseconds(6960));
    file.set_time(file.due());
    file.write_when_due();
    const std::string before = read_file(dir.file("scene.new.js"));
    EXPECT_EQ(numbers.back(), given_by(dir.file("scene.new.js"))["after"]);
    EXPECT_TRUE(given_by(dir.file("scene.new.js"))["messages"].empty());
    file.frame("frame", "9", {});
    file.set_time(file.due() - milliseconds(1)); // 20 times a second at most
    file.write_when_due();
    EXPECT_EQ(before, read_file(dir.file("scene.new.js")));
    file.set_time(file.due());
    file.write_when_due();
    EXPECT_EQ(numbers.back() + 1, given_by(dir.file("scene.new.js"))["messages"][0]["n"]);
}

// The messages of a camera that is told what a RecordSink is, in a file.
struct Camera {
    const TempDir dir{};
    MessageFile file{dir.file("scene.html"), 1};
    MessageMaker maker{{.prefix = "camera", .profile = "a/#+b"}, Source(), 20, file};

    static Moment moment(int ms) { return {SystemTime(milliseconds(ms)), milliseconds(ms)}; }

    void see(const char *stream, const std::string &payload, int ms)
    {
        file.set_time(milliseconds(ms));
        maker.record({*find_stream(stream), moment(ms).time, moment(ms).at, bytes_of(payload)});
    }
    void connect(bool connected, int ms)
    {
        maker.connection({*find_stream("od"), moment(ms), connected, "text"});
    }
    void answer(const std::string &status, int ms)
    {
        maker.status(moment(ms), *scene_of(status_of(status)));
    }
    Json whole()
    {
        file.write_whole();
        return given_by(dir.file("scene.js"));
    }
};

const std::string MODULES = "va.sensor=imx122 1920x1080 30/s\nmodule.od.state=runs\n";
const std::string LINE = lines("setting.CrossLine.C1.", {"StartX=5000", "StartY=0", "EndX=5000",
                                                         "EndY=9999", "Direction=1"}) +
                         lines("filter.0.", {"name=CrossLine.C1", "event=1", "bit=0"});
const std::string AREA = window("setting.ObjectDetection.O1.", 0, 10, 0, 10) +
                         lines("filter.1.", {"name=ObjectDetection.O1", "event=3", "bit=0"});

TEST(MessageMakerTest, TellsSinceWhenTheCameraIsThereAndWhyNot)
{
    Camera camera;
    const auto available = [&] {
        const Json json = state_in(camera.whole(), "va/available");
        return json["State"].get<std::string>() + json["Since"].get<std::string>().substr(19) +
               json.value("Why", "");
    };
    EXPECT_TRUE(available().starts_with("offline") &&
                available().ends_with("waiting for the daemon"));
    camera.connect(true, 100);
    EXPECT_EQ("online.100Z", available());
    camera.maker.verdict(camera.moment(200), {NO_STATUS, "text"});
    EXPECT_EQ("online.100Zthe daemon cannot write its status", available());
    camera.maker.verdict(camera.moment(300), {IS_WELL, ""});
    EXPECT_EQ("online.100Z", available());
    camera.maker.verdict(camera.moment(400), {NO_ANSWER, "it hangs\xff"}); // no UTF-8
    EXPECT_EQ("offline.400Zit hangs\xef\xbf\xbd", available());
    camera.connect(false, 500);
    EXPECT_EQ("offline.400Zthe daemon has gone", available());
    camera.maker.end();
    EXPECT_EQ("offline.400Zva_picture_test has ended", available());
}

TEST(MessageMakerTest, HasAStateForWhatIsInForceAlone)
{
    Camera camera;
    const auto alarm = [&](int ms) {
        camera.see("vmf", words({0, 1, 0, 0}), ms);
        camera.maker.tick(camera.moment(ms + 700)); // it is over
    };
    const auto count = [&] { return state_in(camera.whole(), "Counter/&VideoSource0/"); };
    camera.connect(true, 0);
    camera.answer(MODULES + LINE + AREA, 10);
    EXPECT_EQ(0, count()["Data"]["Count"]);
    EXPECT_EQ(false, state_in(camera.whole(), "GlobalSceneChange")["Data"]["State"]);
    EXPECT_EQ("CrossLine.C1", count()["Source"]["Rule"]);
    EXPECT_EQ(false, state_in(camera.whole(), "ObjectsInside")["Data"]["IsInside"]);
    alarm(100);
    alarm(1000);
    EXPECT_EQ(2, count()["Data"]["Count"]);
    const Json crossings = messages_in(camera.whole(), "LineDetector", false);
    EXPECT_EQ(crossings.back()["n"].get<int>() + 1,
              messages_in(camera.whole(), "Counter", true).back()["n"]);
    const Json scene = state_in(camera.whole(), "va/scene");
    EXPECT_EQ(Json({{"to left", 2}, {"to right", 1}, {"both", 0}}), scene["Directions"]);
    EXPECT_EQ(1, scene["Shapes"][0]["Direction"]);
    EXPECT_EQ(-1, scene["Shapes"][1]["Type"]);
    camera.see("vmf", words({0, 0, 0, 1}), 1800);
    EXPECT_EQ(true, state_in(camera.whole(), "ObjectsInside")["Data"]["IsInside"]);
    camera.answer(MODULES + "setting.ObjectDetection.O1.Type=3\n", 2000);
    EXPECT_TRUE(count().is_null() && state_in(camera.whole(), "ObjectsInside").is_null());
    alarm(3000); // which may end what was there before
    EXPECT_TRUE(count().is_null() && state_in(camera.whole(), "ObjectsInside").is_null());
    camera.answer(MODULES + LINE + AREA + "setting.ObjectDetection.O1.Type=3\n", 4000);
    EXPECT_EQ(2, count()["Data"]["Count"]) << "forgets what was counted";
    EXPECT_EQ(3, state_in(camera.whole(), "va/scene")["Shapes"][1]["Type"]);
}

TEST(MessageMakerTest, ARecordOfOneObjectManyTimesCostsItsEntries)
{
    Camera camera;
    camera.connect(true, 0);
    camera.answer(MODULES + LINE, 10);
    for (int i = 0; i < 8; ++i) {
        std::string entries;
        for (std::uint32_t copy = 0; copy < 1638; ++copy)
            entries += words({7, 3, static_cast<std::uint32_t>(980 - 5 * i), 540, 10, 10, 0, 0,
                              static_cast<std::uint32_t>(i), 0});
        camera.see("od", entries, 20 + 100 * i);
        camera.see("vmf", words({0, i == 5 ? 1U : 0U, 0, 0}), 25 + 100 * i);
    }
    camera.see("od", words({7, 3, 940, 540, 10, 10, 0, 0, 8, 0}), 740); // too soon for a frame
    camera.maker.tick(camera.moment(790));
    const Json whole = camera.whole();
    const std::vector<Json> frames =
        messages_in(whole, "camera/onvif-mj/VideoAnalytics/ab/od", false);
    ASSERT_FALSE(frames.empty());
    EXPECT_EQ(1U, messages_in(whole, "track/7", false).size());
    EXPECT_EQ(1U,
              messages_in(whole, "LineDetector", false)[0]["payload"]["Data"]["Objects"].size());
    EXPECT_EQ(1638U, frames.front()["payload"]["Frame"][0]["Object"].size());
    EXPECT_EQ(1U, frames.back()["payload"]["Frame"][0]["Object"].size());
    EXPECT_LT(std::filesystem::file_size(camera.dir.file("scene.js")), 2'000'000U);
}

void put_still(const std::string &path, const std::string &content, const char *picture = "")
{
    std::ofstream(path + ".new", std::ios::binary)
        << "\xff\xd8" << (*picture ? "\xff\xfe" + std::string("\0\x14", 2) : "") << picture
        << content << "\xff\xd9";
    std::filesystem::rename(path + ".new", path);
}

TEST(StillTest, IsTakenSeldomBoundedAndNotForLong)
{
    const TempDir dir;
    const std::string path = dir.file("still.jpg");
    put_still(path, "old");
    StillFile stills(path, {.poll = milliseconds(100),
                            .interval = milliseconds(1000),
                            .kept = milliseconds(5000),
                            .largest = 20});
    const auto look = [&](int ms) {
        const auto still = stills.look(milliseconds(ms));
        return !still ? "-" : still->jpeg.empty() ? "gone" : still->jpeg.substr(2, 3);
    };
    EXPECT_EQ("-", look(0)) << "lay there before";
    put_still(path, "one");
    EXPECT_EQ("-", look(99));
    EXPECT_EQ("one", look(100));
    put_still(path, "two");
    EXPECT_EQ("-", look(1099)) << "too soon";
    EXPECT_EQ("two", look(1100));
    const std::string said = stderr_of([&] {
        for (int i = 0; i < 3; ++i) {
            put_still(path, std::string(17, 'x'));
            EXPECT_EQ("-", look(2100 + 100 * i));
        }
        std::ofstream(path) << "\xff\xd8half";
        EXPECT_EQ("-", look(2400));
    });
    EXPECT_TRUE(said.find("larger than 20 bytes\n") < said.find("no whole JPEG\n")) << said;
    EXPECT_EQ(2, std::ranges::count(said, '\n')) << said;
    EXPECT_EQ("-", look(6100));
    EXPECT_EQ("gone", look(6200));
    EXPECT_EQ("-", look(9000));
    put_still(path, std::string(16, 'x'));
    EXPECT_EQ("xxx", look(9100));
}

TEST(StillTest, IsShownWithItsFrame)
{
    const TempDir dir;
    const std::string path = dir.file("still.jpg");
    MessageFile file(dir.file("scene.html"), 1);
    Backdrop backdrop(path, "still", file);
    std::string order;
    const auto shown = [&] { // what is new, in its order
        file.write_whole();
        const Json given = given_by(dir.file("scene.js"));
        for (const Json &each : given["messages"]) {
            const std::string text = each.contains("file")
                                         ? read_file(dir.file(each["file"])).substr(24, 1)
                                         : each["payload"].dump();
            if (order.find(text) == std::string::npos)
                order += text;
        }
        return order;
    };
    const auto see = [&](std::uint32_t picture) {
        backdrop.frame("od", std::to_string(picture), picture - 4); // they wrap around
    };
    see(1);
    EXPECT_EQ("1", shown()) << "no still came yet";
    put_still(path, "A", "picture 4294967295");
    backdrop.look(milliseconds(100));
    see(2);
    EXPECT_EQ("1", shown()) << "a still waits for its frame, and frames for their stills";
    see(3);
    see(4);
    backdrop.look(milliseconds(120));
    EXPECT_EQ("12A3", shown());
    put_still(path, "B", "picture 0000000002");
    backdrop.look(milliseconds(200));
    backdrop.look(milliseconds(349));
    EXPECT_EQ("12A3", shown());
    backdrop.look(milliseconds(350));
    EXPECT_EQ("12A34B", shown()) << "there were no objects in it";
    see(7);
    backdrop.look(milliseconds(2200));
    EXPECT_EQ("12A34B", shown());
    backdrop.look(milliseconds(2221));
    EXPECT_EQ("12A34B7null", shown()) << "no still came for two seconds";
    see(8);
    put_still(path, "C", "picture 0000000004");
    backdrop.look(milliseconds(2300));
    see(95);
    see(6);
    EXPECT_EQ("12A34B7null8C95", shown()) << "what sees the video has begun anew";
    for (std::uint32_t picture = 10; picture < 50; ++picture)
        see(picture);
    EXPECT_EQ("12A34B7null8C956", shown()) << "forty frames wait, no more";
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
            const std::string given = read_file(files.file("scene.js"));
            return !given.empty() &&
                   state_in(given_by(files.file("scene.js")), topic).dump().find(text) !=
                       std::string::npos;
        });
    };
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

    CaptureWriter writer(files.file("capture"));
    for (const int ms : {0, 1000, 3500}) {
        const std::string entry = words({7, 3, 960, 540, 192, 108, 1056, 594, 0, 0});
        writer.write({*find_stream("od"), SystemTime(milliseconds(ms)), {}, bytes_of(entry)});
    }
    writer.flush();
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
