#include "ipc/client/frame_reader.h"
#include "ipc/client/stream_client.h"
#include "ipc/network/socket.h"
#include "tests/support/daemon.h"
#include "tests/support/store_file.h"
#include "tests/support/wait.h"
#include "tools/capture.h"
#include "tools/json_printer.h"
#include "tools/picture_printer.h"
#include "tools/text_printer.h"

#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
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

using Result = FrameReader::Result;
using time_point = std::chrono::system_clock::time_point;

std::span<const std::uint8_t> bytes_of(const std::string &text)
{
    return {reinterpret_cast<const std::uint8_t *>(text.data()), text.size()};
}

std::string words(const std::vector<std::uint32_t> &words)
{
    return {reinterpret_cast<const char *>(words.data()), words.size() * sizeof words[0]};
}

std::string frame(const std::string &payload)
{
    return words({static_cast<std::uint32_t>(payload.size())}) + payload;
}

TEST(FrameReaderTest, ReadsFramesHoweverTheyAreCut)
{
    const std::string payloads[] = {"a", std::string(16, '\0'), std::string(300, 'x')};
    std::string stream;
    for (const std::string &payload : payloads)
        stream += frame(payload);
    stream += words({FrameReader::MAX_PAYLOAD + 1, 0});
    for (const std::size_t piece : {std::size_t{1}, std::size_t{5}, stream.size()}) {
        FrameReader reader;
        std::span<const std::uint8_t> payload;
        std::size_t count = 0;
        for (std::size_t at = 0; at < stream.size(); at += piece) {
            EXPECT_TRUE(reader.at_boundary() || (at != 0 && at != 5 && at != 25)) << at;
            reader.append(bytes_of(stream.substr(at, piece)));
            for (; reader.next(payload) == Result::Frame; ++count)
                EXPECT_TRUE(payloads[count] == std::string(payload.begin(), payload.end()));
        }
        EXPECT_EQ(std::size(payloads), count);
        EXPECT_EQ(Result::BadLength, reader.next(payload));
        EXPECT_EQ(FrameReader::MAX_PAYLOAD + 1, reader.announced());
    }
}

TEST(StreamClientTest, SaysOnceWhyNothingComes)
{
    const TempDir dir;
    const std::string path = dir.file("od");
    const std::string waiting = "waiting for " + path + ": ";
    StreamClient client(path);
    StreamClient crowd(path);
    client.connect();
    EXPECT_EQ(waiting + "nobody listens", client.status());
    int fd = -1;
    ASSERT_EQ(0, unix_domain_socket_init(&fd, path.c_str(), 0));
    const Fd listener(fd);
    for (const char *status : {"connected", "closed by the daemon"}) {
        client.connect();
        EXPECT_EQ(status, client.status());
        crowd.connect();
        EXPECT_EQ(waiting + "the daemon accepts no more clients", crowd.status());
        ASSERT_EQ(1, unix_domain_socket_accept(listener.get(), &fd));
        close(fd);
        client.receive(nullptr);
        EXPECT_EQ("closed by the daemon", client.status());
    }
}

TEST(RecordTextTest, PartsEntriesNamesFieldsAndKeepsOddBytes)
{
    const StreamKind &od = *find_stream("od");
    const std::string objects = words({1, 19, 4294967295, 4, 5, 6, 7, 8, 9, 10, 11});
    EXPECT_EQ("1 19 4294967295 4 5 6 7 8 9 10 | 11", payload_text(od, bytes_of(objects), {}));
    const std::string odd = words({0xabcd}) + "\x01\xff";
    EXPECT_EQ("0000abcd 01 ff",
              payload_text(*find_stream("ta"), bytes_of(odd), {.base = Base::Hexadecimal}));
    EXPECT_EQ("event0=43981 01 ff",
              payload_text(*find_stream("vmf"), bytes_of(odd), {.labels = true}));

    setenv("TZ", "XXX+3:30", 1);
    tzset();
    const time_point time{std::chrono::milliseconds(1'000'000'000'007)};
    EXPECT_EQ(R"({"time":"2001-09-08T22:16:40.007-03:30","stream":"od","length":45,"entries":[)"
              R"({"id":1,"kind":19,"x":-1,"y":4,"width":5,"height":6,"centre_x":7,"centre_y":8,)"
              R"("result":9,"reserved":10}],"words":[11],"rest":"61"})",
              json_text({od, time, {}, bytes_of(objects + 'a')}, true));
}

TEST(PictureTest, ShowsSettingsObjectsAndForASecondAlarms)
{
    std::string settings = "Properties.ImageSource.Sensor=imx122\n" +
                           lines("CrossLine.C1.", {"StartX=5000", "StartY=0", "EndX=5000",
                                                   "EndY=5000", "Direction=2"});
    for (const char *key :
         {"ObjectDetection.O0.", "ObjectDetection.O1.", "ObjectDetection.O2.",
          "VMDWindow.NonDetect.V3.", "VideoAnalytics.OD.VmfParam.NdArea2.", "FaceDetection.F9."})
        settings += window(key, 0, 10, 0, 10);
    StoreFile store(settings);
    const TempDir dir;
    PicturePrinter printer(dir.file("picture"));
    const auto see = [&](const char *stream, const std::string &payload, Elapsed at) {
        printer.print({*find_stream(stream), {}, at, bytes_of(payload)});
    };
    const auto shows = [&](const std::string &text) {
        return read_file(dir.file("picture")).find(text) != std::string::npos;
    };
    using std::chrono::milliseconds;
    see("od", words({7, 3, 960, 540, 192, 108, 1056, 594, 0, 0}), {});
    see("od", words({8, 19, 0, 0, 1, 1, 0, 0, 0, 0}), milliseconds(100));
    see("fd", words({3, 1, 1, 1, 1, 100, 0}), milliseconds(100));
    see("vmf", words({2, 1, 0, 0}), milliseconds(100)); // the second area, the line
    printer.tick(milliseconds(200));
    EXPECT_FALSE(shows("static 8")) << "too soon";
    printer.tick(milliseconds(250));
    for (const char *text : {"static 8<", "face 3<", "line 1 ALARM<", "area 0<", "area 1 ALARM<",
                             "area 2 (not used)<", "non-detection 3<", "no-detection 2<",
                             "face watch 9<", "M630.0 0.0 630.0 354.4 '", "od 2 vmf 1 fd 1 ta 0<"})
        EXPECT_TRUE(shows(text)) << text;
    EXPECT_FALSE(shows("moving 7")) << "of an earlier result";
    see("ta", words({1, 0, 0, 0}), milliseconds(1100));
    store.write("");
    printer.tick(milliseconds(1100));
    EXPECT_TRUE(shows("TAMPER") && shows("line 1<") && !shows("static 8<"));
    printer.tick(milliseconds(2100));
    EXPECT_FALSE(shows("TAMPER") || shows("line 1<"));
}

TEST(DumpTest, WaitsReconnectsAndStopsAfterTheCountOrOnASignal)
{
    const TempDir dir;
    Program dump(VA_DUMP, dir.path(), {"-x", "-n", "2", "-d", dir.path(), "ta"});
    EXPECT_TRUE(
        dump.wait_for_log("va_dump: ta: waiting for " + dir.file("ta") + ": nobody listens\n"));
    int fd = -1;
    ASSERT_EQ(0, unix_domain_socket_init(&fd, dir.file("ta").c_str(), 5));
    const Fd listener(fd);
    const std::string alarm = frame(words({1, 2, 3, 0x80000000}));
    const std::pair<std::string, const char *> connections[] = {
        {alarm + words({0x00100001}), "absurd record length 1048577\n"},
        {alarm.substr(0, 9), "closed within a record\n"},
        {alarm + alarm, ""}, // one is beyond the count
    };
    for (const auto &[sent, log] : connections) {
        ASSERT_TRUE(
            wait_until([&] { return unix_domain_socket_accept(listener.get(), &fd) == 1; }));
        EXPECT_EQ(static_cast<ssize_t>(sent.size()), write(fd, sent.data(), sent.size()));
        close(fd);
        EXPECT_TRUE(dump.wait_for_log(log));
    }
    EXPECT_TRUE(dump.wait_for_exit());
    EXPECT_TRUE(dump.wait_for_log("va_dump: ta: connected\n", 3));
    EXPECT_TRUE(std::regex_match(
        dump.output(), std::regex("(.* ta     16  00000001 00000002 00000003 80000000\n){2}")));

    Program stopped(VA_DUMP, dir.path(), {"-q", "-d", dir.path(), "fd", "fd"});
    EXPECT_TRUE(stopped.wait_for_log("waiting"));
    stopped.signal(SIGUSR1);
    EXPECT_TRUE(stopped.wait_for_output("disconnects\nfd              0             0 "));
    stopped.signal(SIGTERM);
    EXPECT_TRUE(stopped.wait_for_exit(3));
}

TEST(DumpTest, ReplaysCapturesAndTellsWhatIsWrong)
{
    const TempDir dir;
    for (CaptureWriter writer(dir.file("capture")); const std::uint32_t i : {1U, 2U, 4U})
        writer.print(
            {*find_stream("od"), time_point(std::chrono::seconds(i)), {}, bytes_of(words({i}))});
    Program whole(VA_DUMP, dir.path(), {"-r", "capture", "-w", "copy", "-x"}, "whole");
    EXPECT_TRUE(whole.wait_for_exit());
    Program figures(VA_DUMP, dir.path(), {"-r", "copy", "-q", "od"}, "figures");
    EXPECT_TRUE(figures.wait_for_exit());
    EXPECT_TRUE(figures.output().ends_with(
        "\nod              3            12        1.00            2.000            0\n"));
    std::filesystem::resize_file(dir.file("copy"), 75);
    Program cut(VA_DUMP, dir.path(), {"-r", "copy", "-x"}, "cut");
    EXPECT_TRUE(cut.wait_for_exit(1));
    EXPECT_EQ("va_dump: copy: ends within a record\n", cut.log());
    EXPECT_TRUE(whole.output().starts_with(cut.output()));
    EXPECT_TRUE(cut.output().ends_with(" od      4  00000002\n"));

    std::ofstream(dir.file("foreign")) << "key=value, and more of it\n";
    const std::tuple<std::vector<std::string>, int, const char *> wrong[] = {
        {{"-n", "2x"}, 2, "2x is no number of records"},
        {{"-r", "copy", "-w", "./copy"}, 2, "the same file"},
        {{"-r", "foreign"}, 1, "foreign: this is no capture"},
        {{"-s", "missing/picture"}, 1, "missing/picture: No such file"},
        {{"-W", "0.01", "-d", ".", "fd"}, 3, "nobody listens"},
    };
    for (const auto &[arguments, status, log] : wrong) {
        Program program(VA_DUMP, dir.path(), arguments);
        EXPECT_TRUE(program.wait_for_exit(status) && program.wait_for_log(log)) << log;
    }
    ASSERT_EQ(0, mkfifo(dir.file("pipe").c_str(), 0600));
    Fd reader(open(dir.file("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    Program piped(VA_DUMP, dir.path(), {"-d", ".", "fd"}, "pipe");
    EXPECT_TRUE(piped.wait_for_log("nobody listens"));
    reader.reset();
    EXPECT_TRUE(piped.wait_for_exit(3));
}

} // namespace
