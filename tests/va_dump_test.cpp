#include "ipc/client/frame_reader.h"
#include "ipc/network/socket.h"
#include "tests/support/daemon.h"
#include "tests/support/wait.h"
#include "tools/text_printer.h"

#include <csignal>
#include <string>
#include <vector>

#include <gtest/gtest.h>
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
    FrameReader reader;
    std::span<const std::uint8_t> payload;
    reader.append(bytes_of(words({FrameReader::MAX_PAYLOAD})));
    EXPECT_NE(Result::BadLength, reader.next(payload));
}

TEST(RecordTextTest, PartsEntriesAndKeepsOddBytes)
{
    const std::string objects = words({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 4294967295});
    EXPECT_EQ("1 2 3 4 5 6 7 8 9 10 | 11 4294967295",
              payload_text(*find_stream("od"), bytes_of(objects), {}));
    const std::string odd = words({0xabcd}) + "\x01\xff";
    EXPECT_EQ("0000abcd 01 ff", payload_text(*find_stream("ta"), bytes_of(odd), {.base = Base::Hexadecimal}));
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
    const std::string line = "00000001 00000002 00000003 80000000\n";
    const std::string output = dump.output();
    EXPECT_EQ(output.size() - line.size(), output.rfind(line));
    EXPECT_EQ(output.size() / 2 - line.size(), output.find(line));

    Program stopped(VA_DUMP, dir.path(), {"-d", dir.path(), "fd"});
    EXPECT_TRUE(stopped.wait_for_log("waiting"));
    stopped.signal(SIGTERM);
    EXPECT_TRUE(stopped.wait_for_exit(3));
    EXPECT_TRUE(Program(VA_DUMP, dir.path(), {"-n", "2x"}).wait_for_exit(2));
}

} // namespace
