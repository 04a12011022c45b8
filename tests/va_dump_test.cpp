#include "tests/support/client_data.h"
#include "tests/support/daemon.h"
#include "tests/support/store_file.h"
#include "tests/support/wait.h"
#include "tools/common/printing.h"
#include "tools/va_dump/filters.h"
#include "tools/va_dump/status_printing.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using namespace va;
using namespace va::dump;

TEST(DumpTest, WaitsReconnectsAndStopsAfterTheCount)
{
    const TempDir dir;
    Program dump(VA_DUMP, dir.path(), {"-j", "-n", "2", "-d", dir.path(), "ta"});
    EXPECT_TRUE(
        dump.wait_for_log("va_dump: ta: waiting for " + dir.file("ta") + ": nobody listens\n"));
    const Listener listener(dir.file("ta"));
    const std::string alarm = frame(words({1, 2, 3, 0x80000000}));
    for (const std::string &sent : {alarm + words({0x00100001}), alarm.substr(0, 9), alarm + alarm})
        EXPECT_EQ(static_cast<ssize_t>(sent.size()),
                  write(listener.accept().get(), sent.data(), sent.size()));
    EXPECT_TRUE(dump.wait_for_exit());
    const std::string record = R"(\{.*"length":16,"words":\[1,2,3,2147483648\]\}\n)";
    const std::string connected = R"(\{.*"connected":true,"status":"connected"\}\n)";
    const std::string lost = R"(\{.*"connected":false,"status":".*)";
    EXPECT_TRUE(std::regex_match(
        dump.output(), std::regex(lost + "\n" + connected + record + lost + " length 1048577.*\n" +
                                  connected + lost + "within a record.*\n" + connected + record)))
        << dump.output();
}

TEST(DumpTest, ShowsACaptureAsItIsAsked)
{
    const TempDir dir;
    write_capture(dir.file("capture"));
    const std::string seven = R"({"id":7,"kind":3,"kind_word":"Dynamic","x":960,"y":540,)"
                              R"("width":192,"height":108,"centre_x":1056,"centre_y":594,)"
                              R"("result":0,"picture":0})";
    const std::string nine = R"({"id":9,"kind":19,"kind_word":"Static","x":5,"y":6,)"
                             R"("width":7,"height":8,"centre_x":8,"centre_y":10,)"
                             R"("result":0,"picture":0})";
    const std::string figures =
        "stream    records         bytes   records/s  longest pause s  disconnects\n";
    const std::string all_of_od =
        "od              2           124        0.80            2.500            0";
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        {{"-x", "vmf", "ta"},
         "T vmf    16  00000000 00000001 00000000 00000000\n"
         "T ta     13  00000001 00000002 00000003 ab"},
        {{"-l", "kind=static"},
         "T od     40  id=9 kind=Static x=5 y=6 width=7 height=8 centre_x=8 centre_y=10 result=0 "
         "picture=0"},
        {{"-j", "vmf", "ta"},
         R"({"time":"T","stream":"vmf","length":16,"words":[0,1,0,0]}
{"time":"T","stream":"ta","length":13,"words":[1,2,3],"rest":"ab"})"},
        {{"-j", "-l", "-W", "1", "od"},
         R"({"time":"T","stream":"od","length":84,"entries":[)" + seven + "," + nine +
             "],\"words\":[77]}"},
        {{"-n", "1", "-w", "small", "--size", "20", "kind=moving", "id=7", "id=9"},
         "T od     40  7 3 960 540 192 108 1056 594 0 0"},
        {{"-q", "--every", "1", "--pace", "1000", "od"},
         figures + "od              1            84        1.00            1.000            0\n" +
             figures +
             "od              1            84        0.50            2.000            0\n" +
             figures + all_of_od},
        {{"-q", "-w", "whole"},
         figures + all_of_od +
             "\nvmf             1            16        0.40            2.000            0\n"
             "fd              0             0        0.00            0.000            0\n"
             "ta              1            13        0.40            2.000            0"},
        {{"-e", "-n", "6"},
         "T  moving 7 appeared at 1056,594\n"
         "T  static 9 appeared at 8,10\n"
         "T  line (event 1 bit 0) crossed, 1 so far\n"
         "T  tamper alarm began\n"
         "T  moving 7 left, from 1056,594 to 1056,594\n"
         "T  static 9 left, from 8,10 to 8,10"},
        {{"-e", "-j", "-w", "turned", "--size", "150", "line=0"},
         R"({"time":"T","event":"line_crossed","name":"event 1 bit 0","event_code":1,"bit":0,)"
         R"("objects":[],"count":1}
{"time":"T","event":"results_missed","results":1})"},
    };
    for (auto [arguments, expected] : rows) {
        arguments.insert(arguments.begin(), {"-r", "capture"});
        Program program(VA_DUMP, dir.path(), arguments);
        EXPECT_TRUE(program.wait_for_exit());
        const std::regex time(R"((\d+-\d+-\d+T)?\d\d:\d\d:\d\d\.\d{3}([-+]\d\d:\d\d)?)");
        EXPECT_EQ(expected + '\n', std::regex_replace(program.output(), time, "T"))
            << program.log();
    }
    EXPECT_EQ(read_file(dir.file("capture")), read_file(dir.file("whole")));
    EXPECT_EQ(148, std::filesystem::file_size(dir.file("turned.1"))) << "the first two records";
    EXPECT_FALSE(std::filesystem::exists(dir.file("small.1"))) << "no record was in it";
    EXPECT_EQ(101, std::filesystem::file_size(dir.file("turned")));
}

// The events of a scene that is played once, each told once, with the names that the daemon has;
// and the settings that it has read again, however long that takes.
TEST(DumpTest, TellsTheEventsOfTheSceneAndWhatIsInForce)
{
    const DaemonFiles files;
    files.write("scene", "od_interval 100\nevery 100 ta 1 0 0 0\nhang ne3_val_od_set_ctrl 2 700\n"
                         "object 7 dynamic 192x108 from 100,540 to 1900,540 between 1000 2500\n"
                         "object 9 static 90x80 from 400,300 to 400,300 between 1200 1900\n");
    const auto line = [](const char *key) {
        return lines(key, {"StartX=5000", "StartY=0", "EndX=5000", "EndY=9999"});
    };
    files.store(line("CrossLine.C2.") + window("ObjectDetection.O1.", 7000, 9999, 0, 9999) +
                lines("VideoAnalytics.OD.SOParam.", {"MinSizeX=2", "MinSizeY=2"}));
    Program dump(VA_DUMP, files.path(), {"-e", "-d", "run"}, "events");
    Daemon daemon(files, {"-o", "-t"});
    const auto reload_and_stop = [&] {
        Program off(VA_DUMP, files.path(), {"-d", "run", "fd"}, "off");
        EXPECT_TRUE(off.wait_for_log("va_dump: fd: fd is off\n"));
        files.store("VMDWindow.Sensitivity=26\n" + line("CrossLine.C1.") +
                    window("VMDWindow.NonDetect.V0.", 0, 0, 0, 9999));
        Program reload(VA_DUMP, files.path(), {"-d", "run", "--reconfig"}, "reload");
        EXPECT_TRUE(reload.wait_for_exit(IS_WELL) && daemon.stop());
        EXPECT_TRUE(std::regex_search(reload.output(),
                                      std::regex("\n  CrossLine.C1.EndY = 9999\n(.*\n)*"
                                                 "  VMDWindow.NonDetect.V0.Left = 0 \\(no")));
        EXPECT_EQ(std::string::npos, reload.output().find("CrossLine.C2"));
    };
    const std::string events[] = {
        "daemon is here",
        "moving 7 appeared at \\d+,540",
        "static 9 appeared at 400,300",
        "line CrossLine.C2 crossed by moving 7 to the left, 1 so far",
        "area ObjectDetection.O1 entered by moving 7",
        "area ObjectDetection.O1 left after 0.\\d s",
        "moving 7 left after 1.\\d s, from \\d+,540 to 1[678]\\d\\d,540",
        "static 9 left after 0.\\d s, from 400,300 to 400,300",
        "tamper alarm began",
        "daemon is gone",
        "tamper alarm ended after \\d+.\\d s, cut off",
    };
    for (const std::string &event : events) {
        if (event == "daemon is gone")
            reload_and_stop();
        EXPECT_TRUE(wait_until([&] {
            return std::regex_search(dump.output(), std::regex("  " + event + "\n"));
        })) << event;
    }
    dump.signal(SIGTERM);
    EXPECT_TRUE(dump.wait_for_exit());
    const std::string output = dump.output();
    EXPECT_EQ(std::size(events), std::ranges::count(output, '\n')) << output;
}

// Lines 0 and 2 are the bits 0 and 3 of their mask, area 1 is bit 31 of event code 3.
TEST(FiltersTest, LetThroughWhatIsWanted)
{
    const AlarmRule line{AlarmRule::Source::Line, 1, 3, 2};
    const Scene scene{
        {1920, 1080},
        {},
        {{AlarmRule::Source::Line, 1, 0, 0}, line, {AlarmRule::Source::Area, 3, 31, 1}}};
    const std::string line2 = words({0, 8, 0, 0});
    const std::string area1 = words({0, 0, 0, 0x80000000});
    const std::string nine = words({9, 19, 1, 1, 1, 1, 1, 1, 0, 0});
    const std::string objects = words({7, 3, 1, 1, 1, 1, 1, 1, 0, 0}) + nine;
    using enum Stream;
    struct Row {
        std::vector<const char *> filters;
        Stream stream;
        std::string payload;
        std::string selected; // empty: nothing
        bool known = true;    // the scene
    };
    const Row rows[] = {
        {{"line=0", "line=2"}, Vmf, line2, line2},
        {{"line=CrossLine.C2"}, Vmf, line2, line2},
        {{"line=0", "line=3", "area=2"}, Vmf, line2, ""},
        {{"area=ObjectDetection.O1"}, Vmf, area1, area1},
        {{"line=3"}, Vmf, line2, line2, false},
        {{"line=CrossLine.C2"}, Vmf, line2, "", false},
        {{"line=2"}, Vmf, words({0, 9, 0, 0}), words({0, 9, 0, 0})},
        {{"id=7"}, Vmf, line2, ""},
        {{"id=9", "line=0"}, Od, objects, nine},
        {{"id=9", "kind=moving"}, Od, objects, ""},
        {{"line=0"}, Od, objects, ""},
        {{"id=9"}, Ta, objects, ""},
    };
    const auto filters_of = [](const std::vector<const char *> &texts) {
        Filters filters;
        for (const char *text : texts)
            filters.add(text);
        return filters;
    };
    for (const Row &row : rows) {
        Filters filters = filters_of(row.filters);
        filters.set_scene(row.known ? std::optional(scene) : std::nullopt);
        const auto selected = filters.select({row.stream, {}, {}, bytes_of(row.payload)});
        EXPECT_EQ(row.selected, selected ? std::string(selected->begin(), selected->end()) : "")
            << row.filters[0];
    }
    Event crossing{.kind = Event::Kind::LineCrossed, .at = {}, .rule = line};
    crossing.participants = {{Detection::Kind::Moving, 7, Crossing::ToLeft}};
    const std::pair<std::vector<const char *>, bool> events[] = {
        {{"line=3", "area=2"}, false}, {{"id=7"}, true},
        {{"line=2", "id=8"}, false},   {{"line=CrossLine.C2", "id=7"}, true},
        {{"kind=static"}, false},
    };
    for (const auto &[texts, wanted] : events) {
        const Filters filters = filters_of(texts);
        EXPECT_EQ(wanted, filters.want(crossing)) << texts[0];
        EXPECT_FALSE(filters.want({.kind = Event::Kind::TamperBegan, .at = {}}));
        EXPECT_TRUE(filters.want({.kind = Event::Kind::DaemonGone, .at = {}}));
    }
}

TEST(DumpTest, TellsWhatIsWrong)
{
    const DaemonFiles dir;
    write_capture(dir.file("capture"));
    const std::string capture = dir.read("capture");
    dir.write("cut", capture.substr(0, 180));
    dir.write("cut_payload", capture.substr(0, 200));
    dir.write("foreign", "key=value, and more of it\n");
    const std::tuple<std::vector<std::string>, int, const char *> wrong[] = {
        {{"-n", "2x"}, 2, "2x is no number of records"},
        {{"-d"}, 2, "-d needs a value"},
        {{"-x", "-j"}, 2, "-j and -x exclude each other"},
        {{"kind=tall"}, 2, "no kind is called tall"},
        {{"-r", "capture", "-w", "./capture"}, 2, "the same file"},
        {{"-r", "capture", "line=CrossLine.C0"}, 2, "have no names"},
        {{"area=x"}, 2, "x is neither a number nor a name"},
        {{"--status", "-w", "x"}, 2, "read no records"},
        {{"-r", "foreign"}, 1, "foreign: this is no capture"},
        {{"-r", "cut", "fd"}, 1, "va_dump: cut: ends within a record\n"},
        {{"-r", "cut_payload", "fd"}, 1, "va_dump: cut_payload: ends within a record\n"},
        {{"-W", "0.01", "-d", "missing", "fd"}, 3, "no such directory"},
    };
    for (const auto &[arguments, status, log] : wrong) {
        Program program(VA_DUMP, dir.path(), arguments);
        EXPECT_TRUE(program.wait_for_exit(status) && program.wait_for_log(log)) << log;
        EXPECT_EQ("", program.output());
    }
    ASSERT_EQ(0, mkfifo(dir.file("pipe").c_str(), 0600));
    Fd reader(open(dir.file("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    Program piped(VA_DUMP, dir.path(), {"-d", ".", "fd"}, "pipe");
    EXPECT_TRUE(piped.wait_for_log("nobody listens"));
    const Fd filler(open(dir.file("pipe").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    while (write(filler.get(), "x", 1) == 1)
        ;
    Program stalled(VA_DUMP, dir.path(), {"-q", "-W", "0.1", "-d", ".", "fd"}, "pipe");
    EXPECT_TRUE(stalled.wait_for_exit(3)) << "waits for a reader beyond its time";
    reader.reset();
    EXPECT_TRUE(piped.wait_for_exit(3));
}

TEST(DumpTest, PrintsTimesWithTheirZone)
{
    const SystemTime time(std::chrono::milliseconds(-1)); // before 1970, too
    const std::pair<const char *, const char *> zones[] = {
        {"west+05:30", "1969-12-31T18:29:59.999-05:30"},
        {"east-01", "1970-01-01T00:59:59.999+01:00"}};
    for (const auto &[zone, expected] : zones) {
        setenv("TZ", zone, 1);
        tzset();
        EXPECT_EQ(expected, iso_text(time));
        EXPECT_EQ("1969-12-31T23:59:59.999Z", utc_text(time));
    }
    unsetenv("TZ");
    tzset();
}

TEST(DumpTest, MakesAnObjectOfAStatus)
{
    const DaemonStatus status = status_of("va.version=1.2.3\n"
                                          "stream.od.records=7\n"
                                          "stream.od.client.1.process=-1.50\n"
                                          "setting.A.B0.C=01\nsetting.A.B1.C=x\n"
                                          "control.last_unknown=\\\"\t\n"
                                          "module.od.state=runs\nmodule.fd.state=off\n"
                                          "left_out.A=x\n");
    EXPECT_EQ(R"({"verdict":"well","exit_status":0,"va":{"version":"1.2.3"},)"
              R"("stream":{"od":{"records":7,"client":{"1":{"process":-1.5}}}},)"
              R"("setting":{"A.B0.C":"01","A.B1.C":"x"},"control":{"last_unknown":"\\\"\t"},)"
              R"("module":{"od":{"state":"runs"},"fd":{"state":"off"}},"left_out":{"A":"x"}})",
              status_json(status, {IS_WELL, "well"}));
    const DaemonStatus hangs = status_of("analytics.state=hang\nanalytics.last_pass=4.0\n");
    EXPECT_EQ(R"({"verdict":"the analytics of va hang, since 4.0 s","exit_status":5,)"
              R"("analytics":{"state":"hang","last_pass":4.0}})",
              status_json(hangs, judge(hangs)));
    EXPECT_NE(std::string::npos,
              metrics_of({DaemonStatus::Answer::Unwritten, "", {}}).find("\nva_up 1\n"));
    const std::string metrics = metrics_of(status);
    EXPECT_TRUE(metrics.ends_with("\nva_settings_left_out 1\n")) << metrics;
    EXPECT_EQ(std::string::npos, metrics.find("module=\"fd\"")) << "one that is off is not down";
}

TEST(DumpTest, TellsAQuietSceneFromADaemonThatIsNotWell)
{
    const DaemonFiles files;
    const auto expect = [&](std::vector<std::string> arguments, int status,
                            const std::string &text) {
        arguments.insert(arguments.begin(), {"-d", "run"});
        Program dump(VA_DUMP, files.path(), arguments, "dump");
        EXPECT_TRUE(dump.wait_for_exit(status)) << text;
        const std::string printed = dump.output() + dump.log();
        EXPECT_NE(std::string::npos, printed.find(text)) << printed;
    };
    const std::vector<std::string> ask = {"--status"};
    const std::vector<std::string> read = {"-W", "0.2", "ta"};
    expect(ask, GONE, "va does not run: nobody listens at run/ctrl");
    expect({"-q", "-W", "0.2", "ta"}, NO_RECORDS,
           "ta              0             0        0.00            0.000            0\n");
    {
        Daemon quiet(files, {"-t"});
        EXPECT_TRUE(quiet.wait_for_log("sim: ta control"));
        expect(ask, IS_WELL, "\nta      runs");
        expect({"--metrics"}, IS_WELL, "\nva_stream_longest_seconds{stream=\"ta\"} 0e-6\n");
        expect({"--metrics"}, IS_WELL, "\nva_module_up{module=\"ta\"} 1\n");
        expect(read, NO_RECORDS, "connected");
        std::filesystem::remove(files.file("run/status"));
        std::filesystem::create_directory(files.file("run/status"));
        expect({"--status", "-j"}, NO_STATUS,
               "\"va runs, but cannot write its status: its log says");
        expect({"-e", "-n", "2", "ta"}, NO_STATUS, "  va runs, but cannot write its status");
        quiet.signal(SIGSTOP);
        expect(ask, NO_ANSWER, "va does not answer: no answer in time");
        expect(read, NO_ANSWER, "va_dump: va does not answer");
    } // killed
    expect({"--reconfig"}, GONE, "va does not run");
    files.write("run/pid", std::to_string(getpid()) + '\n');
    expect(ask, NO_ANSWER, "va does not answer: it takes no requests");
    for (const char *name : {"run/status", "run/pid"})
        std::filesystem::remove(files.file(name));
    {
        const Fd control(open(files.file("run/ctrl").c_str(), O_RDWR | O_CLOEXEC));
        Program dump(VA_DUMP, files.path(), {"-d", "run", "--status"});
        char request[7];
        EXPECT_EQ(7, ::read(control.get(), request, sizeof request));
        EXPECT_TRUE(dump.wait_for_exit(NO_ANSWER)) << "of one that hangs since it took a request";
    }

    files.write("scene", "fail ne3_val_ta_get_data 2 5\n");
    Daemon blind(files, {"-t"}, "blind");
    EXPECT_TRUE(blind.wait_for_log("Analytics have ended"));
    const std::string reason = "runs without analytics: ta: ne3_val_ta_get_data failed, code 5\n";
    expect({"--metrics"}, NO_ANALYTICS, "\nva_module_up{module=\"ta\"} 0\n");
    expect(read, NO_ANALYTICS, "va_dump: va " + reason);
    expect({"-e", "-n", "2", "ta"}, NO_ANALYTICS, "  va " + reason); // the second event, unasked
    EXPECT_TRUE(blind.stop());

    files.write("scene", "every 100 ta 1 0 0 0\n");
    Daemon stalled(files, {"-t"}, "stalled");
    const Program events(VA_DUMP, files.path(), {"-d", "run", "-e", "ta"}, "events");
    const Program json(VA_DUMP, files.path(), {"-d", "run", "-j", "ta"}, "json");
    EXPECT_TRUE(events.wait_for_output("tamper alarm began") && json.wait_for_output("words"));
    expect(ask, IS_WELL, ""); // an answer that is none to those who ask later
    stalled.signal(SIGSTOP);
    EXPECT_TRUE(events.wait_for_output("  va does not answer: no answer in time\n") &&
                json.wait_for_output("\"verdict\":\"va does not answer"));
    stalled.signal(SIGCONT);
    EXPECT_TRUE(events.wait_for_output("  daemon is well again\n"));
}

} // namespace
