#include "tests/support/client_data.h"
#include "tests/support/store_file.h"
#include "tools/common/message_maker.h"

#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace
{

using namespace va;
using std::chrono::milliseconds;

// What a camera publishes, one line each: "state va/available {...}"; of frames what they show and
// what is gone: "od 7 8 -5", "refused" when it is.
struct Told : MessageTarget {
    std::string lines{};
    bool takes_frames = true;

    void add(const std::string &kind, const std::string &topic, const std::string &payload)
    {
        EXPECT_TRUE(topic.starts_with("camera/"));
        lines += kind + topic.substr(7) + ' ' + payload + '\n';
    }
    void event(const std::string &topic, const std::string &payload, bool retained) override
    {
        add(retained ? "retained " : "event ", topic, payload);
    }
    void state(const std::string &topic, const std::string &payload) override
    {
        add("state ", topic, payload);
    }
    bool frame(const std::string &topic, const std::string &payload,
               std::optional<std::uint32_t>) override
    {
        const Json frame = Json::parse(payload)["Frame"][0];
        lines += takes_frames ? "frame " : "refused ";
        lines += frame["@Source"].get<std::string>();
        EXPECT_EQ("camera/onvif-mj/VideoAnalytics/ab/" + frame["@Source"].get<std::string>(),
                  topic);
        const Json objects = frame.value("Object", Json::array());
        const Json tree = frame.value("ObjectTree", Json{{"Delete", Json::array()}});
        for (const Json &object : objects)
            lines += ' ' + object["@ObjectId"].dump();
        for (const Json &gone : tree["Delete"])
            lines += " -" + gone["@ObjectId"].dump();
        lines += '\n';
        last_frame = payload;
        return takes_frames;
    }
    std::string last_frame{};
};

struct Camera {
    explicit Camera(double rate = 4) : rate_(rate) {}

    static Moment moment(int ms) { return {SystemTime(milliseconds(ms)), milliseconds(ms)}; }

    // What is told of it, as far as it contains `text`.
    std::string told(const std::string &text = "")
    {
        std::istringstream lines(std::exchange(target.lines, ""));
        std::string found;
        for (std::string line; std::getline(lines, line);)
            found += line.find(text) == std::string::npos ? "" : line + '\n';
        return found;
    }
    void see(const char *stream, const std::string &payload, int ms)
    {
        maker.record({*find_stream(stream), moment(ms).time, moment(ms).at, bytes_of(payload)});
    }
    void connect(const char *stream, bool connected, int ms)
    {
        maker.connection({*find_stream(stream), moment(ms), connected, "text"});
    }
    void answer(const std::string &status, int ms)
    {
        maker.status(moment(ms), *scene_of(status_of(status)));
    }

    double rate_;
    Told target{};
    MessageMaker maker{
        {.prefix = "camera", .video_source = "V", .analytics = "A", .profile = "a/#+b"},
        Source(),
        rate_,
        target};
};

const std::string MODULES = "va.sensor=imx122 2000x1000 30/s\nmodule.od.state=runs\n";
const std::string LINE = lines("setting.CrossLine.C1.", {"StartX=5000", "StartY=0", "EndX=5000",
                                                         "EndY=9999", "Direction=1"}) +
                         lines("filter.0.", {"name=CrossLine.C1", "event=1", "bit=0"});
const std::string AREA = window("setting.ObjectDetection.O1.", 0, 10, 0, 10) +
                         lines("filter.1.", {"name=ObjectDetection.O1", "event=3", "bit=0"});
constexpr const char *CROSSED = "onvif-ej/RuleEngine/LineDetector/Crossed/&V/A/CrossLine-C1";
constexpr const char *COUNTER = "onvif-ej/RuleEngine/CountAggregation/Counter/&V/A/CrossLine-C1";
constexpr const char *INSIDE =
    "onvif-ej/RuleEngine/FieldDetector/ObjectsInside/&V/A/ObjectDetection-O1";

// Moving objects, or a static one of number 70 and so on.
std::string objects(const std::vector<std::uint32_t> &numbers, std::uint32_t kind = 3)
{
    std::string entries;
    for (const std::uint32_t number : numbers)
        entries += words({number, kind, 960, 540, 10, 20, 964, 551, 0, 0});
    return entries;
}

TEST(MessagesTest, FramesAreLimitedAndSayWhatIsGone)
{
    constexpr std::uint32_t last = 0xffffffff;
    const struct {
        const char *what;
        int ms;
        std::optional<std::string> seen; // a record of "od"; else only time passes
        bool taken;
        const char *told; // of frames
    } steps[] = {
        {"the first", 0, objects({7, 8}), true, "frame od 7 8\n"},
        {"too soon", 100, objects({7}), true, ""},
        {"the newest waits", 120, objects({7, 9}), true, ""},
        {"half an interval early", 130, {}, true, "frame od 7 9\n"},
        {"unseen for a second", 1110, objects({7}), true, "frame od 7 -8\n"},
        {"the number again", 1500, objects({8}), true, "frame od 10 -9\n"},
        {"a lower one", 2000, objects({3}), false, "refused od 11\n"},
        {"what was not sent", 2600, objects({3}), true, "frame od 11 -7 -10\n"},
        {"the last one", 3700, {}, false, "refused od -11\n"},
        {"not at once again", 4600, {}, false, ""},
        {"a second later", 4700, {}, false, "refused od -11\n"},
        {"two seconds later", 6600, {}, true, ""},
        {"which it is until it is sent", 6700, {}, true, "frame od -11\n"},
        {"and once", 9000, {}, true, ""},
        {"a moving one", 10000, objects({7}), true, "frame od 12\n"},
        {"that stops", 10500, objects({7}, 19), true, "frame od 12\n"},
        {"is the same", 11100, objects({7}, 19), true, "frame od 12\n"},
        {"", 12200, {}, true, "frame od -12\n"},
        {"the highest", 13000, objects({last}), true, "frame od 4294967295\n"},
        {"the next", 13500, objects({1}), true, "frame od 4294967296\n"},
        {"an empty result", 13800, "", true, "frame od\n"},
        {"one more", 13950, "", true, ""},
        {"", 14800, {}, true, "frame od -4294967295 -4294967296\n"},
        {"", 16000, objects({5}), true, "frame od 4294967297\n"},
        {"this one is never shown", 16050, objects({5, 6}), true, ""},
    };
    Camera camera;
    camera.connect("od", true, 0);
    camera.see("od", objects({2}), 0); // nobody knows the frame's size yet
    camera.connect("od", false, 0);
    camera.connect("od", true, 0);
    camera.answer(MODULES, 0);
    EXPECT_EQ("", camera.told("od"));
    for (const auto &[what, ms, seen, taken, told] : steps) {
        camera.target.takes_frames = taken;
        if (seen)
            camera.see("od", *seen, ms);
        else
            camera.maker.tick(camera.moment(ms));
        EXPECT_EQ(told, camera.told(" od")) << ms << ' ' << what;
    }
    camera.see("fd", words({7, 1, 2, 3, 4, 250, 0}), 16060);
    EXPECT_EQ("frame fd 7\n", camera.told(" fd")) << "faces have ids of their own";
    EXPECT_NE(std::string::npos, camera.target.last_frame.find("\"@Likelihood\":1.0"));
    camera.connect("od", false, 16100);
    camera.maker.tick(camera.moment(16400));
    EXPECT_EQ("frame od -4294967297\n", camera.told(" od"));
    EXPECT_EQ(R"({"Frame":[{"@UtcTime":"1970-01-01T00:00:16.050Z","@Source":"od",)"
              R"("ObjectTree":{"Delete":[{"@ObjectId":4294967297}]}}]})",
              camera.target.last_frame);
    camera.connect("od", true, 17000);
    camera.see("od", objects({1}), 17000);
    EXPECT_EQ("", camera.told(" od")) << "the next daemon's frame may have another size";
}

// Without what is there for people: line ends followed by spaces.
std::string flat(const std::string &text)
{
    return std::regex_replace(text, std::regex("\n +"), "");
}

TEST(MessagesTest, AreExactlyThese)
{
    Camera camera(20);
    camera.connect("od", true, 0);
    camera.maker.earlier_states({});
    camera.answer(MODULES + LINE + AREA, 0);
    camera.told();
    // An object that stands there twice is one.
    camera.see("od", words({7, 3, 1010, 540, 10, 20, 1014, 551, 0, 0}) + objects({8, 8}, 19), 100);
    EXPECT_EQ(flat(R"(event va/track/7 {"State":"Began","ObjectId":7,"Class":"Moving",
                      "First":{"UtcTime":"1970-01-01T00:00:00.100Z",
                      "BoundingBox":{"@left":1010,"@top":540,"@right":1020,"@bottom":560}}}
state onvif-ej/VideoSource/MotionAlarm/&V {"UtcTime":"1970-01-01T00:00:00.100Z",
                      "Source":{"Source":"V"},"Data":{"State":true}}
event va/track/8 {"State":"Began","ObjectId":8,"Class":"Static",
                      "First":{"UtcTime":"1970-01-01T00:00:00.100Z",
                      "BoundingBox":{"@left":960,"@top":540,"@right":970,"@bottom":560}}}
frame od 7 8
)"),
              camera.told());
    EXPECT_NE(std::string::npos, camera.target.last_frame.find(flat(R"("Object":[{"@ObjectId":7,
        "Appearance":{"Shape":{"BoundingBox":{"@left":1010,"@top":540,"@right":1020,"@bottom":560},
        "CenterOfGravity":{"@x":1014.0,"@y":551.0}},"Class":{"Type":["Moving"]}}},{"@ObjectId":8,)")));
    camera.see("fd", words({3, 100, 200, 5, 4, 87, 0}), 150);
    EXPECT_EQ(flat(R"({"Frame":[{"@UtcTime":"1970-01-01T00:00:00.150Z","@Source":"fd",
        "Transformation":{"Translate":{"@x":-1,"@y":1},"Scale":{"@x":0.001,"@y":-0.002}},
        "Object":[{"@ObjectId":3,"Appearance":{"Shape":{
        "BoundingBox":{"@left":100,"@top":200,"@right":105,"@bottom":204},
        "CenterOfGravity":{"@x":102.5,"@y":202.0}},
        "Class":{"Type":[{"@Likelihood":0.87,"#text":"HumanFace"}]}}}]}]})"),
              camera.target.last_frame);
    camera.see("vmf", words({0, 1, 0, 1}), 195);
    camera.told();
    const std::string over = words({7, 3, 980, 0, 10, 20, 984, 11, 0, 0});
    const std::string inside = words({8, 19, 0, 0, 1, 1, 0, 0, 0, 0, 9, 3, 0, 0, 1,
                                      1, 0,  0, 0, 0, 5, 3, 0, 0, 1, 1, 0, 0, 0, 0});
    camera.see("od", over + over + inside + inside, 200);
    EXPECT_EQ(flat(R"(event onvif-ej/RuleEngine/LineDetector/Crossed/&V/A/CrossLine-C1 {
        "UtcTime":"1970-01-01T00:00:00.195Z",
        "Source":{"VideoSource":"V","AnalyticsConfiguration":"A","Rule":"CrossLine-C1"},
        "Data":{"ObjectId":7,"ClassTypes":"Moving",
        "Objects":[{"ObjectId":7,"Class":"Moving","Crossing":"to right"}],"Count":1}}
retained onvif-ej/RuleEngine/CountAggregation/Counter/&V/A/CrossLine-C1 {
        "UtcTime":"1970-01-01T00:00:00.195Z",
        "Source":{"VideoSource":"V","AnalyticsConfiguration":"A","Rule":"CrossLine-C1"},
        "Data":{"Count":1}}
retained onvif-ej/RuleEngine/FieldDetector/ObjectsInside/&V/A/ObjectDetection-O1 {
        "UtcTime":"1970-01-01T00:00:00.195Z",
        "Source":{"VideoSource":"V","AnalyticsConfiguration":"A","Rule":"ObjectDetection-O1"},
        "Data":{"IsInside":true,"ObjectId":8,"ClassTypes":"Static Moving",
        "Objects":[{"ObjectId":8,"Class":"Static"},{"ObjectId":9,"Class":"Moving"},
        {"ObjectId":10,"Class":"Moving"}]}}
)"),
              camera.told("onvif-ej"));
    camera.see("ta", words({1, 0, 0, 0}), 300);
    camera.maker.tick(camera.moment(4000));
    const std::string told = camera.told();
    const std::string source = "/&V {\"UtcTime\":\"1970-01-01T00:00:0";
    const std::string tamper = "retained onvif-ej/VideoSource/GlobalSceneChange/AnalyticsService";
    for (const std::string &line :
         {tamper + source + R"(0.300Z","Source":{"Source":"V"},"Data":{"State":true}})",
          tamper + source + R"(4.000Z","Source":{"Source":"V"},"Data":{"State":false}})",
          "state onvif-ej/VideoSource/MotionAlarm" + source +
              R"(4.000Z","Source":{"Source":"V"},"Data":{"State":false}})",
          std::string(R"("Data":{"IsInside":false}})"),
          std::string(R"(,"Seconds":0.1,"CutOff":false})")})
        EXPECT_NE(std::string::npos, told.find(line + '\n')) << line << '\n' << told;
}

// "CrossLine-C1 3, O1 false" and so on: the states of rules and what is taken back.
std::string short_of(const std::string &lines)
{
    const std::regex line(
        R"rx(\w+ onvif-ej/\S*/(\S+) (\{.*"(Count|IsInside|State)":(\w+)\}\})?\n)rx");
    return std::regex_replace(std::regex_replace(lines, line, "$1 $4, "),
                              std::regex("(CrossLine|ObjectDetection)-"), "");
}

TEST(MessagesTest, CountersGoOnAndWhatIsNoLongerInForceIsTakenBack)
{
    Camera camera;
    const auto topic = [](const std::string &end) { return "camera/" + end; };
    const auto counter = [](const std::string &count) {
        return R"({"UtcTime":"x","Data":{"Count":)" + count + "}}";
    };
    const auto cross = [&](int ms) {
        camera.see("vmf", words({0, 1, 0, 0}), ms);
        camera.maker.tick(camera.moment(ms + 700)); // it is over
    };
    EXPECT_EQ("&V false, &V false, ", short_of(camera.told("onvif-ej"))) << "motion, tampering";
    camera.connect("od", true, 0);
    cross(0);
    const std::string nameless = camera.told("Crossed");
    EXPECT_NE(std::string::npos, nameless.find("/event-1-bit-0 {")) << nameless;
    camera.answer(MODULES + LINE + AREA, 1000);
    EXPECT_EQ("O1 false, ", short_of(camera.told("onvif-ej")));
    cross(1100);
    EXPECT_EQ(std::string::npos, camera.told("onvif-ej").find("Count")) << "not known yet";
    const std::string old_area = topic(INSIDE).replace(topic(INSIDE).size() - 1, 1, "2");
    camera.maker.earlier_states({{topic(COUNTER), counter("41")},
                                 {old_area, "{}"},
                                 {topic("onvif-ej/RuleEngine/x/CrossLine.C0"), "{}"},
                                 {topic("onvif-ej/VideoSource/MotionAlarm/&V"), "{}"},
                                 {topic("va/still"), "jpeg"},
                                 {topic("va/scene"), "{}"}});
    EXPECT_EQ("C1 42, O2 , CrossLine.C0 , ", short_of(camera.told()));
    camera.maker.earlier_states({{topic(COUNTER), counter("9")}}); // of another broker
    EXPECT_EQ("", camera.told());
    cross(2000);
    EXPECT_EQ("C1 43, C1 43, ", short_of(camera.told("onvif-ej")));
    camera.see("vmf", words({0, 0, 0, 1}), 3000);
    EXPECT_EQ("", camera.told("state")) << "an event that is retained";
    camera.answer(MODULES + "setting.ObjectDetection.O1.Type=3\n", 3100);
    EXPECT_EQ("C1 , O1 , ", short_of(camera.told("onvif-ej")));
    camera.maker.tick(camera.moment(5000)); // what was there before ends
    cross(5000);
    EXPECT_EQ("", camera.told("state")) << camera.told("retained");
    camera.answer(MODULES + LINE + AREA + "setting.ObjectDetection.O1.Type=3\n", 6000);
    const std::string again = camera.told();
    EXPECT_EQ(0U, again.find(R"(state onvif-ej/RuleEngine/CountAggregation/)")) << again;
    EXPECT_NE(std::string::npos, again.find(R"({"Count":43}})")) << "forgets what was counted";
    EXPECT_NE(std::string::npos, again.find(R"("Type":3,)"));
    EXPECT_NE(std::string::npos, again.find(R"("Rule":"CrossLine-C1","Crossing":"to right",)"));
    EXPECT_NE(std::string::npos, again.find(R"("Directions":{"to left":2,"to right":1,"both":0})"));

    for (const char *bad : {"", "x", "[]", "{}", R"({"Data":1})", R"({"Data":{"Count":-1}})",
                            R"({"Data":{"Count":"7"}})", R"({"Data":{"Count":1.5}})",
                            R"({"Data":{"Count":9007199254740993}})"}) {
        Camera other;
        other.maker.earlier_states({{topic(COUNTER), bad}, {topic(CROSSED), "{}"}});
        EXPECT_EQ("&V false, &V false, C1 , ", short_of(other.told("onvif-ej")))
            << "not the counter";
        other.connect("od", true, 0);
        other.answer(MODULES + LINE, 10);
        EXPECT_EQ("C1 0, ", short_of(other.told("onvif-ej"))) << bad;
    }
    Camera other;
    other.maker.earlier_states({{topic(COUNTER), counter("7")}});
    other.told();
    other.answer(MODULES, 10);
    EXPECT_EQ("C1 , ", short_of(other.told("onvif-ej"))) << "once it is known to be no line";
}

TEST(MessagesTest, SaySinceWhenTheCameraIsThereAndWhyNot)
{
    Camera camera;
    const auto available = [&] {
        return std::regex_replace(
            camera.told("available"),
            std::regex(R"rx(.*"State":"(\w+)".*Since":"\S{19}(.{5})"(,"Why":"(.*)")?,.*\n)rx"),
            "$1$2$4");
    };
    camera.told();
    camera.connect("od", true, 100);
    EXPECT_EQ("online.100Z", available());
    camera.maker.verdict(camera.moment(200), {NO_STATUS, "text"});
    EXPECT_EQ("online.100Zthe daemon cannot write its status", available());
    camera.maker.verdict(camera.moment(300), {IS_WELL, ""});
    EXPECT_EQ("online.100Z", available());
    camera.maker.verdict(camera.moment(400), {NO_ANSWER, "it hangs\xff"}); // no UTF-8
    EXPECT_EQ("offline.400Zit hangs\xef\xbf\xbd", available());
    camera.connect("od", false, 500);
    EXPECT_EQ("offline.400Zthe daemon has gone", available());
}

TEST(MessagesTest, WhoHasGoneIsKnownForASecondMore)
{
    const Detection face{Detection::Kind::Face, 7, 0, 0, 0, 0, 0, 0};
    ObjectIds ids;
    ids.appear(face);
    ids.leave(face, milliseconds(5000));
    ids.forget_gone(milliseconds(5999));
    EXPECT_EQ(7U, ids.of(face.kind, face.number));
    ids.forget_gone(milliseconds(6000));
    EXPECT_EQ(std::nullopt, ids.of(face.kind, face.number));
}

} // namespace
