#include "ipc/network/fd.h"
#include "ipc/network/socket.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait.h"
#include "tools/frame_reader.h"
#include "tools/record_text.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using Result = FrameReader::Result;

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
    const std::string stream = frame(payloads[0]) + frame(payloads[1]) + frame(payloads[2]);
    for (std::size_t piece = 1; piece <= stream.size(); ++piece) {
        FrameReader reader;
        std::size_t count = 0;
        for (std::size_t at = 0; at < stream.size(); at += piece) {
            EXPECT_EQ(at == 0 || at == 5 || at == 25, reader.at_boundary());
            reader.append(bytes_of(stream.substr(at, piece)));
            std::span<const std::uint8_t> payload;
            for (; reader.next(payload) == Result::Frame; ++count)
                EXPECT_EQ(payloads[count], std::string(payload.begin(), payload.end())) << piece;
        }
        EXPECT_EQ(3u, count);
        EXPECT_TRUE(reader.at_boundary());
    }
}

TEST(FrameReaderTest, GivesUpOnAnAbsurdLength)
{
    FrameReader reader;
    std::span<const std::uint8_t> payload;
    reader.append(bytes_of(frame(std::string(FrameReader::MAX_PAYLOAD, 'p'))));
    EXPECT_EQ(Result::Frame, reader.next(payload));
    EXPECT_EQ(FrameReader::MAX_PAYLOAD, payload.size());
    reader.append(bytes_of(words({FrameReader::MAX_PAYLOAD + 1})));
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(Result::BadLength, reader.next(payload));
        EXPECT_EQ(FrameReader::MAX_PAYLOAD + 1, reader.announced());
        reader.append(bytes_of(frame("lost")));
    }
}

TEST(RecordTextTest, PartsEntriesAndKeepsOddBytes)
{
    const std::string objects = words({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 4294967295});
    EXPECT_EQ("1 2 3 4 5 6 7 8 9 10 | 11 4294967295",
              payload_text(*find_stream("od"), bytes_of(objects), Base::Decimal));
    const std::string odd = words({0xabcd}) + "\x01\xff";
    EXPECT_EQ("0000abcd 01 ff", payload_text(*find_stream("ta"), bytes_of(odd), Base::Hexadecimal));
}

// The real program, its messages among its records. Killed after a minute.
struct Dump {
    explicit Dump(const std::string &arguments)
        : lines(popen(("echo $$; exec timeout 60 " VA_DUMP " 2>&1 " + arguments).c_str(), "r"))
    {
    }

    std::string next_line() const
    {
        char line[200];
        return fgets(line, sizeof line, lines) ? line : "";
    }

    FILE *lines;
    pid_t pid = std::stoi(next_line());
};

TEST(DumpTest, WaitsReconnectsAndStopsAfterTheCountOrOnASignal)
{
    const TempDir dir;
    const Dump dump("-x -n 2 -d " + dir.path() + " ta");
    EXPECT_EQ("va_dump: ta: waiting for " + dir.file("ta") + "\n", dump.next_line());
    int fd = -1;
    ASSERT_EQ(0, unix_domain_socket_init(&fd, dir.file("ta").c_str(), 5));
    const Fd listener(fd);
    const std::string alarm = frame(words({1, 2, 3, 0x80000000}));
    const struct {
        std::string sent;
        std::vector<std::string> lines;
    } connections[] = {
        {alarm + words({0x01000001}),
         {"00000001 00000002 00000003 80000000", "absurd record length 16777217"}},
        {alarm.substr(0, 9), {"closed within a record"}},
        {alarm + alarm, {"00000001 00000002 00000003 80000000"}}, // one is beyond the count
    };
    for (const auto &[sent, lines] : connections) {
        ASSERT_TRUE(
            wait_until([&] { return unix_domain_socket_accept(listener.get(), &fd) == 1; }));
        EXPECT_EQ("va_dump: ta: connected\n", dump.next_line());
        EXPECT_EQ(static_cast<ssize_t>(sent.size()), write(fd, sent.data(), sent.size()));
        close(fd);
        for (const std::string &line : lines)
            EXPECT_TRUE(dump.next_line().ends_with(line + "\n")) << line;
    }
    EXPECT_EQ(0, pclose(dump.lines));

    const Dump stopped("-d " + dir.path() + " fd");
    stopped.next_line();
    kill(stopped.pid, SIGTERM);
    EXPECT_EQ(0, pclose(stopped.lines));
    EXPECT_EQ(1, WEXITSTATUS(std::system("timeout 60 " VA_DUMP " -n 2x 2>/dev/null")));
}

} // namespace
