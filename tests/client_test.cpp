#include "client/events.h"
#include "client/stream_client.h"
#include "tests/support/client_data.h"
#include "tests/support/store_file.h"
#include "tests/support/wait.h"

#include <sstream>

#include <gtest/gtest.h>

namespace
{

using namespace va;
using std::chrono::milliseconds;

constexpr const char *kind_names[] = {"here",      "gone",     "unwell",       "well",
                                      "appeared",  "left",     "crossed",      "entered",
                                      "area left", "tampered", "tamper ended", "missed"};

long count_ms(Elapsed time)
{
    return static_cast<long>(std::chrono::floor<milliseconds>(time).count());
}

// "left 1/7 0-400 10-30" is object 7 of kind 1, there from 0 to 400 ms, from x = 10 to 30; "crossed
// CrossLine.C0 x2 by 7> 8<" the second crossing, by object 7 to the right and 8 to the left.
std::string text_of(const Event &event)
{
    using enum Event::Kind;
    std::ostringstream text;
    text << kind_names[static_cast<int>(event.kind)];
    if (event.kind == ObjectAppeared || event.kind == ObjectLeft)
        text << ' ' << static_cast<int>(event.from.kind) << '/' << event.from.number;
    if (event.kind == LineCrossed || event.kind == AreaEntered || event.kind == AreaLeft)
        text << ' ' << name_of(event.rule);
    if (event.kind == LineCrossed)
        text << " x" << event.count;
    if (event.kind == LineCrossed || event.kind == AreaEntered) {
        for (const Participant &each : event.participants)
            text << (&each == event.participants.data() ? " by " : " ") << each.number
                 << (each.side == Crossing::ToLeft    ? "<"
                     : each.side == Crossing::ToRight ? ">"
                                                      : "");
    }
    if (event.kind == ObjectLeft || event.kind == AreaLeft || event.kind == TamperEnded)
        text << ' ' << count_ms(event.first) << '-' << count_ms(event.last);
    if (event.kind == ObjectLeft)
        text << ' ' << event.from.x << '-' << event.to.x;
    if (event.missed)
        text << ' ' << event.missed;
    return text.str() + (event.cut_off ? " cut off; " : "; ");
}

// What happens at a moment: a stream with the words of a record, "+" or "-" before its name for a
// connection made or lost; "!" when the daemon is found blind, "!status" when it cannot
// write its status; "." at the end of all; empty when only time passes.
struct Step {
    long ms;
    const char *feed;
    const char *told;
};

class Script
{
public:
    std::string play(const Step &step)
    {
        told_.clear();
        now_ = milliseconds(step.ms);
        std::istringstream feed(step.feed);
        std::string name;
        feed >> name;
        if (name.empty())
            maker_.pass(now_);
        else if (name == ".")
            maker_.finish(now_);
        else if (name[0] == '!')
            maker_.set_verdict({name == "!" ? NO_ANALYTICS : NO_STATUS, "unwell"}, now_);
        else if (name[0] == '+' || name[0] == '-')
            maker_.set_connected(*find_stream(name.substr(1)), name[0] == '+', now_);
        else
            take(*find_stream(name), feed);
        return told_;
    }

    EventMaker &maker() { return maker_; }

private:
    void take(Stream stream, std::istream &feed)
    {
        std::vector<std::uint32_t> words;
        for (std::uint32_t word; feed >> word;)
            words.push_back(word);
        const auto *bytes = reinterpret_cast<const std::uint8_t *>(words.data());
        maker_.take({stream, {}, now_, {bytes, words.size() * sizeof words[0]}});
    }

    Elapsed now_{};
    std::string told_;
    EventMaker maker_{[this](const Event &event) {
        EXPECT_EQ(now_, event.at);
        told_ += text_of(event);
    }};
};

// Object 7 walks through line 0, then through area 2; object 9 is static. The entries of the
// stand-in: number, kind, x, y, width, height, centre, result, 0.
TEST(EventsTest, ATableOfWhatHappensAndWhatIsTold)
{
    const Scene scene{
        {1920, 1080}, {}, {{AlarmRule::Source::Line, 1, 0, 0}, {AlarmRule::Source::Area, 3, 0, 2}}};
    constexpr Step steps[] = {
        {0, "+od", "here; "},
        {0, "+vmf", ""},
        {0, "+ta", ""},
        {0, "+od", ""},
        {0, "od 7 3 10 5 4 4 12 7 0 0", "appeared 0/7; "},
        {200, "vmf 0 1 0 0", "crossed CrossLine.C0 x1; "},
        {200, "od 7 3 20 5 4 4 22 7 1 0  9 19 50 5 4 4 52 7 1 0", "appeared 1/9; "},
        {400, "vmf 0 1 0 0", ""}, // the bit stays
        {400, "od 7 3 30 5 4 4 32 7 4 0", "missed 2; "},
        {600, "vmf 0 0 0 1", "entered ObjectDetection.O2; "},
        {899, "vmf 0 1 0 0", ""}, // rose within the line's rest
        {1199, "od 7 3 40 5 4 4 42 7 5 0", ""},
        {1200, "", "left 1/9 200-200 50-50; "},
        {1399, "vmf 0 1 0 1", "crossed CrossLine.C0 x2; "},
        {2198, "od 7 3 60 5 4 4 62 7 6 0", ""}, // shortly before its rest is over
        {2398, "", ""},
        {2399, "", "area left ObjectDetection.O2 600-1399; "},
        {3300, "od 7 3 80 5 4 4 82 7 0 0", "left 0/7 0-2198 10-60; appeared 0/7; "}, // began anew
        {3300, "vmf 2 4 0 8",
         "entered event 0 bit 1; crossed event 1 bit 2 x1; entered event 3 bit 3; "},
        {3300, "fd 3 1 1 1 1 100 0", "appeared 2/3; "},
        {3300, "ta 1 0 0 0", "tampered; "},
        {5200, "ta 1 0 0 0",
         "left 0/7 3300-3300 80-80; area left event 0 bit 1 3300-3300; "
         "area left event 3 bit 3 3300-3300; left 2/3 3300-3300 1-1; "},
        {7199, "od 7 3 80 5 4 4 82 7 1 0", "appeared 0/7; "},
        {7200, "", "tamper ended 3300-5200; "},
        {7300, "vmf 0 1 0 1", "crossed CrossLine.C0 x3; entered ObjectDetection.O2; "},
        {7300, "fd 3 1 1 1 1 100 0", "appeared 2/3; "},
        {7400, "ta 1 0 0 0", "tampered; "},
        {7500, "-od", "left 0/7 7199-7199 80-80 cut off; "},
        {7500, "-vmf", "area left ObjectDetection.O2 7300-7300 cut off; "},
        {7500, "-ta", "tamper ended 7400-7400 cut off; gone; "},
        {7500, "-ta", ""},
        {8200, "+od", "here; "},
        {8250, "od 7 3 80 5 4 4 82 7 900 0", "appeared 0/7; "}, // nothing is missed: a new daemon
        {8300, "", "left 2/3 7300-7300 1-1; "},                 // was never connected
        {8325, "!status", "unwell; "},
        {8350, "!", "left 0/7 8250-8250 80-80 cut off; unwell; "},
        {8400, "od 7 3 80 5 4 4", ""}, // half an entry, an empty record
        {8400, "vmf", ""},
        {8400, "vmf 0 0 0 0 1", ""}, // no such event code
    };
    Script script;
    for (const Step &step : steps) {
        // Before the settings could be read, and after.
        script.maker().set_scene(step.ms == 3300 ? std::nullopt : std::optional(scene));
        EXPECT_EQ(step.told, script.play(step)) << step.ms << ' ' << step.feed;
    }
}

// Line 0 goes down at x = 500 and alarms to its right, which is the picture's left; area 2 is
// left of x = 20 and below y = 500. Objects are 4 by 4 pixels.
TEST(EventsTest, NamesWhoCrossedALineAndWhoIsInAnArea)
{
    const AlarmRule line{AlarmRule::Source::Line, 1, 0, 0};
    const AlarmRule area{AlarmRule::Source::Area, 3, 0, 2};
    const Scene scene{{1000, 2000},
                      {{Shape::Kind::Line, 0, {{5000, 500}, {5000, 2000}}, true, Crossing::ToRight},
                       {Shape::Kind::Area, 2, {{0, 2500}, {0, 9999}, {200, 9999}, {200, 2500}}}},
                      {line, area}};
    constexpr const char *before = "od 7 3 510 200 4 4 512 202 0 0  8 3 490 200 4 4 492 202 0 0  "
                                   "9 3 510 450 4 4 512 452 0 0";
    constexpr const char *after = "od 7 3 490 200 4 4 492 202 0 0  8 3 510 200 4 4 512 202 0 0  "
                                  "9 3 490 450 4 4 492 452 0 0";
    constexpr const char *inside = "od 7 3 1 498 4 4 3 500 1 0  8 3 1 497 4 4 3 499 1 0  "
                                   "9 3 18 498 4 4 20 500 1 0";    // 7 alone
    constexpr const char *who = "crossed CrossLine.C0 x1 by 7>; "; // 8 to the left, 9 beside it
    const struct {
        const char *what;
        std::vector<Step> steps; // behind a result at 0 ms
        const char *told;
    } rows[] = {
        {"the alarm before its result", {{100, "vmf 0 1 0 0", ""}, {101, after, who}}, who},
        {"the alarm behind it", {{100, after, ""}, {101, "vmf 0 1 0 0", who}}, who},
        {"results too far apart",
         {{200, "vmf 0 1 0 0", ""}, {201, after, ""}, {350, "", ""}},
         "crossed CrossLine.C0 x1; "},
        {"no result at all",
         {{100, "vmf 0 1 0 0", ""}, {249, "", ""}, {250, "", ""}},
         "crossed CrossLine.C0 x1; "},
        {"the stream ends",
         {{100, "vmf 0 1 0 0", ""}, {110, "-vmf", ""}},
         "crossed CrossLine.C0 x1; gone; "},
        {"the end", {{100, "vmf 0 1 0 0", ""}, {110, ".", ""}}, "crossed CrossLine.C0 x1; "},
        {"an area, not by who was there before",
         {{100, "vmf 0 0 0 1", ""}, {101, inside, ""}},
         "entered ObjectDetection.O2 by 7; "},
    };
    for (const auto &[what, steps, told] : rows) {
        Script script;
        script.maker().set_scene(scene);
        script.play({0, "+vmf", ""});
        script.maker().set_scene(scene);
        script.play({0, before, ""});
        std::string all;
        for (const Step &step : steps)
            all += script.play(step);
        EXPECT_EQ(told, all) << what;
    }
    Script busy;
    busy.play({0, "+vmf", ""});
    busy.maker().set_scene(scene);
    busy.play({0, "od 6 3 510 200 4 4 512 202 0 0  7 3 510 200 4 4 512 202 0 0", ""});
    busy.play({100, "od 6 3 490 200 4 4 492 202 0 0  7 3 505 200 4 4 507 202 0 0", ""});
    EXPECT_EQ("crossed CrossLine.C0 x1 by 6>; ", busy.play({100, "vmf 0 1 0 0", ""}));
    EXPECT_EQ("", busy.play({200, "vmf 0 1 0 0", ""})) << "perhaps another one, or the same still";
    EXPECT_EQ("crossed CrossLine.C0 x2 by 7>; ",
              busy.play({201, "od 7 3 490 200 4 4 492 202 0 0", ""}));
    EXPECT_EQ("", busy.play({300, "vmf 0 1 0 0", ""}));
    EXPECT_EQ("", busy.play({460, "", ""})) << "the same";
    Scene moved = scene;
    moved.rules[0].number = 1;
    moved.shapes[0].number = 1;
    moved.shapes.push_back({Shape::Kind::NoAlarm, 0, {{0, 0}, {0, 3000}, {9999, 3000}, {9999, 0}}});
    busy.maker().set_scene(moved);
    busy.play({1000, before, ""});
    busy.play({1100, after, ""});
    EXPECT_EQ("", busy.play({1100, "vmf 0 1 0 0", ""}));
    EXPECT_EQ("crossed CrossLine.C1 x1; ", busy.play({1260, "", ""}))
        << "none of another line's count, and nobody who is where nothing alarms";

    Script expecting;
    expecting.maker().expect_scene();
    EXPECT_EQ("here; ", expecting.play({0, "+vmf", ""}));
    EXPECT_EQ("", expecting.play({10, "vmf 0 1 0 0", ""})) << "its name is on the way";
    expecting.maker().set_scene(scene);
    EXPECT_EQ("crossed CrossLine.C0 x1; ", expecting.play({20, "", ""}));
    EXPECT_EQ("gone; ", expecting.play({30, "-vmf", ""}));
    EXPECT_EQ("here; ", expecting.play({40, "+vmf", ""}));
    EXPECT_EQ("", expecting.play({1030, "vmf 0 1 0 0", ""})) << "as that of another daemon";
    EXPECT_EQ("crossed event 1 bit 0 x1; ", expecting.play({1040, "", ""}));
}

// "CrossLine.C0 to-right 1,2 3,4; ", with "unused" where it is.
std::string text_of(const Scene &scene)
{
    constexpr const char *crossings[] = {"?", "left", "right", ""};
    std::ostringstream text;
    for (const Shape &shape : scene.shapes) {
        text << key_of(shape) << ' ' << crossings[static_cast<int>(shape.crossing)]
             << (shape.used ? "" : "unused");
        for (const Point &point : shape.points)
            text << ' ' << point.x << ',' << point.y;
        text << (shape.kind == Shape::Kind::FaceDetection ? " faces; " : "; ");
    }
    for (const AlarmRule &rule : scene.rules)
        text << rule.event << '/' << rule.bit << '=' << name_of(rule) << "; ";
    return text.str();
}

TEST(SceneTest, IsWhatTheStatusHasInForce)
{
    const std::string sensor = "va.sensor=imx122 1920x1080 30/s\n";
    const std::string od = "module.od.state=runs\n";
    const std::string line = "CrossLine.C2.StartX=1\nsetting.CrossLine.C2.StartY=0\n"
                             "setting.CrossLine.C2.EndX=9999\nsetting.CrossLine.C2.EndY=3 (x)\n";
    const std::pair<std::string, const char *> rows[] = {
        {od + window("setting.VMDWindow.NonDetect.V0.", 1, 2, 3, 4),
         "VMDWindow.NonDetect.V0  1,3 1,4 2,4 2,3; "},
        {od + window("setting.VMDWindow.Detect.V3.", 9999, 0, 1, 0),
         "VMDWindow.Detect.V3  0,0 0,1 9999,1 9999,0; "},
        {od + window("setting.VideoAnalytics.OD.VmfParam.NdArea1.", 1, 10000, 3, 4),
         "VideoAnalytics.OD.VmfParam.NdArea1  1,3 1,4 10000,4 10000,3; "},
        {od + "setting." + line, "CrossLine.C2  1,0 9999,3; "},
        {od + "setting." + line + "setting.CrossLine.C2.Direction=1\n",
         "CrossLine.C2 right 1,0 9999,3; "},
        {od + "setting." + line + "setting.CrossLine.C2.Direction=2\n",
         "CrossLine.C2 left 1,0 9999,3; "},
        {od + "left_out." + line, ""}, // some of it
        {od + window("left_out.ObjectDetection.O2.", 1, 2, 3, 4),
         "ObjectDetection.O2 unused 1,3 1,4 2,4 2,3; "},
        {od + window("left_out.ObjectDetection.O2.", 2, 2, 3, 4), ""},
        {od + window("left_out.ObjectDetection.O2.", 1, 10000, 3, 4), ""},
        {window("setting.ObjectDetection.O1.", 1, 2, 3, 4), ""}, // no module says that it runs
        {"module.od.state=off\n" + window("setting.ObjectDetection.O1.", 1, 2, 3, 4), ""},
        {od + window("setting.FaceDetection.F0.", 1, 2, 3, 4), ""},
        {"module.fd.state=opens\n" + window("setting.FaceDetection.F0.", 1, 2, 3, 4),
         "FaceDetection.F0  1,3 1,4 2,4 2,3; "},
        {"module.fd.state=runs\nsetting.FaceDetection.F10.WindowType=Detected\n" +
             window("setting.FaceDetection.F10.", 1, 2, 3, 4),
         "FaceDetection.F10  1,3 1,4 2,4 2,3 faces; "},
        {"filter.0.name=CrossLine.C2\nfilter.0.event=1\nfilter.0.bit=0\n"
         "filter.1.name=ObjectDetection.O0\nfilter.1.event=3\nfilter.1.bit=31\n"
         "filter.2.name=ObjectDetection.O1\nfilter.2.event=4\nfilter.2.bit=0\n"
         "filter.3.name=Other.O1\nfilter.3.event=1\nfilter.3.bit=1\n"
         "filter.4.name=CrossLine.C1\nfilter.4.event=1\nfilter.4.bit=32\n",
         "1/0=CrossLine.C2; 3/31=ObjectDetection.O0; "},
    };
    for (const auto &[settings, expected] : rows) {
        const auto scene = scene_of(status_of(sensor + settings));
        ASSERT_TRUE(scene);
        EXPECT_TRUE(scene->frame == (Size{1920, 1080}));
        EXPECT_EQ(expected, text_of(*scene)) << settings;
    }
    for (const char *text : {"", "imx122", "imx122 1920x 30/s", "imx122 0x1080 30/s", "x", " "})
        EXPECT_FALSE(scene_of(status_of("va.sensor=" + std::string(text) + '\n'))) << text;
    DaemonStatus gone = status_of(sensor);
    gone.answer = DaemonStatus::Answer::Gone;
    EXPECT_FALSE(scene_of(gone));
}

TEST(StreamClientTest, HandsOnWhatWasReadWhenTheEndComesAndTheSinkHasEnough)
{
    const TempDir dir;
    const Listener listener(dir.file("od"));
    StreamClient client(dir.file("od"));
    client.connect();
    EXPECT_EQ(StreamClient::State::Connected, client.state());
    const std::string sent = frame("a") + frame("b") + frame("c");
    EXPECT_EQ(static_cast<ssize_t>(sent.size()),
              write(listener.accept().get(), sent.data(), sent.size()));
    std::string got;
    for (int reads = 0; reads < 4; ++reads)
        client.receive(
            [&](auto payload) { return got += static_cast<char>(payload.front()), false; });
    EXPECT_EQ("abc", got);
    EXPECT_EQ(StreamClient::State::Closed, client.state());
    client.connect();
    EXPECT_EQ(StreamClient::State::Connected, client.state()) << "the last one was of use";
    listener.accept();
    client.receive({});
    client.connect();
    EXPECT_TRUE(client.fd() >= 0 && client.state() == StreamClient::State::Closed)
        << "it was turned away, and may be again";
    EXPECT_TRUE(wait_until([&] {
        return client.connect(), client.state() == StreamClient::State::Connected;
    })) << "nobody turns it away, though nothing comes";
}

} // namespace
