#include "ipc/network/fd.h"
#include "ipc/network/socket.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait.h"
#include "tools/frame_reader.h"
#include "tools/record_text.h"

#include <csignal>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using Words = std::vector<std::uint32_t>;

std::span<const std::uint8_t> bytes_of(const std::string &text)
{
    return {reinterpret_cast<const std::uint8_t *>(text.data()), text.size()};
}

std::string text_of(const Words &words)
{
    return {reinterpret_cast<const char *>(words.data()), words.size() * sizeof words[0]};
}

std::string length_text(std::size_t length)
{
    return text_of({static_cast<std::uint32_t>(length)});
}

std::string frame(const std::string &payload)
{
    return length_text(payload.size()) + payload;
}

std::vector<std::string> frames_from(FrameReader &reader, const std::string &bytes)
{
    std::vector<std::string> payloads;
    std::span<const std::uint8_t> payload;
    reader.append(bytes_of(bytes));
    while (reader.next(payload) == FrameReader::Result::Frame)
        payloads.emplace_back(payload.begin(), payload.end());
    return payloads;
}

TEST(FrameReaderTest, ReadsFramesHoweverTheyAreCut)
{
    const std::vector<std::string> payloads = {"a", std::string(16, '\0'), std::string(300, 'x')};
    std::string stream;
    for (const std::string &payload : payloads)
        stream += frame(payload);
    for (std::size_t piece = 1; piece <= stream.size(); ++piece) {
        FrameReader reader;
        std::vector<std::string> read;
        for (std::size_t at = 0; at < stream.size(); at += piece) {
            EXPECT_EQ(at == 0 || at == 5 || at == 25, reader.at_boundary());
            for (const std::string &payload : frames_from(reader, stream.substr(at, piece)))
                read.push_back(payload);
        }
        EXPECT_EQ(payloads, read) << "in pieces of " << piece;
        EXPECT_TRUE(reader.at_boundary());
    }
}

TEST(FrameReaderTest, GivesUpOnAnAbsurdLength)
{
    FrameReader longest;
    EXPECT_TRUE(frames_from(longest, length_text(FrameReader::MAX_PAYLOAD)).empty());
    const std::string payload(FrameReader::MAX_PAYLOAD, 'p');
    EXPECT_EQ(std::vector{payload}, frames_from(longest, payload));

    FrameReader broken;
    const std::string absurd = length_text(FrameReader::MAX_PAYLOAD + 1);
    EXPECT_EQ(std::vector<std::string>{"good"}, frames_from(broken, frame("good") + absurd));
    for (int i = 0; i < 2; ++i) {
        std::span<const std::uint8_t> rest;
        EXPECT_EQ(FrameReader::Result::BadLength, broken.next(rest));
        EXPECT_EQ(FrameReader::MAX_PAYLOAD + 1, broken.announced());
        broken.append(bytes_of(frame("lost")));
    }
}

TEST(RecordTextTest, PartsEntriesAndKeepsOddBytes)
{
    const StreamKind &od = *find_stream("od");
    const std::string objects = text_of({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 4294967295});
    EXPECT_EQ("1 2 3 4 5 6 7 8 9 10 | 11 4294967295",
              payload_text(od, bytes_of(objects), Base::Decimal));
    const StreamKind &ta = *find_stream("ta");
    EXPECT_EQ("0000abcd 01 ff",
              payload_text(ta, bytes_of(text_of({0xabcd}) + "\x01\xff"), Base::Hexadecimal));
    EXPECT_EQ(nullptr, find_stream("pid"));
}

// The real program, its output in files. Killed when left running.
class DumpProcess
{
public:
    explicit DumpProcess(const TempDir &dir, std::vector<std::string> arguments)
        : out_(dir.file("out")), err_(dir.file("err"))
    {
        std::vector<char *> argv{const_cast<char *>("va_dump")};
        for (std::string &argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC;
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out_.c_str(), flags, 0666);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err_.c_str(), flags, 0666);
        if (posix_spawn(&pid_, VA_DUMP, &actions, nullptr, argv.data(), environ) != 0)
            pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
    }
    ~DumpProcess()
    {
        if (pid_ <= 0)
            return;
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    DumpProcess(const DumpProcess &) = delete;
    DumpProcess &operator=(const DumpProcess &) = delete;

    void signal(int number) const { kill(pid_, number); }

    int exit_status() // -1: killed, or still running after the bound
    {
        int status = -1;
        if (!wait_until([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }))
            return -1;
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // The lines of standard output, once there are so many; a shorter list when they do not come.
    std::vector<std::string> lines(std::size_t count) const
    {
        std::vector<std::string> lines;
        wait_until([&] {
            std::ifstream file(out_);
            lines.clear();
            for (std::string line; std::getline(file, line) && !file.eof();)
                lines.push_back(line);
            return lines.size() >= count;
        });
        return lines;
    }
    bool wait_for_message(const std::string &text) const
    {
        return wait_until([&] {
            std::ostringstream messages;
            messages << std::ifstream(err_).rdbuf();
            return messages.str().find("va_dump: " + text) != std::string::npos;
        });
    }

private:
    std::string out_;
    std::string err_;
    pid_t pid_ = -1;
};

class DumpTest : public testing::Test
{
protected:
    Fd listen_on(const std::string &stream) const
    {
        int fd = -1;
        EXPECT_EQ(0, unix_domain_socket_init(&fd, dir.file(stream).c_str(), 5));
        return Fd(fd);
    }

    static Fd accept_on(const Fd &listener)
    {
        int fd = -1;
        EXPECT_TRUE(
            wait_until([&] { return unix_domain_socket_accept(listener.get(), &fd) == 1; }));
        return Fd(fd);
    }

    static void send_to(const Fd &client, const std::string &bytes)
    {
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
                  write(client.get(), bytes.data(), bytes.size()));
    }

    static bool sees_end_of_file(const Fd &client)
    {
        char byte;
        return wait_until([&] { return read(client.get(), &byte, 1) == 0; });
    }

    TempDir dir;
};

void expect_line(const std::string &expected, const std::string &line)
{
    static const std::regex time("^[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} ");
    EXPECT_TRUE(std::regex_search(line, time)) << line;
    EXPECT_EQ(expected, std::regex_replace(line, time, ""));
}

TEST_F(DumpTest, WaitsReconnectsAndStopsAfterTheCount)
{
    DumpProcess dump(dir, {"-d", dir.path(), "-n", "4", "ta", "fd"});
    ASSERT_TRUE(dump.wait_for_message("ta: waiting for " + dir.file("ta")));
    const std::string alarm = frame(text_of({1, 2, 3, 4}));
    const std::string faces = frame(text_of({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}));
    const Fd ta = listen_on("ta");
    {
        const Fd client = accept_on(ta);
        send_to(client, alarm + alarm.substr(0, 2));
        expect_line("ta     16  1 2 3 4", dump.lines(1).at(0));
        send_to(client, alarm.substr(2));
        EXPECT_EQ(2U, dump.lines(2).size());
        send_to(client, alarm.substr(0, 9)); // dies within a record
    }
    const Fd again = accept_on(ta);
    EXPECT_TRUE(dump.wait_for_message("ta: closed within a record"));
    const Fd fd = listen_on("fd");
    const Fd late = accept_on(fd);
    send_to(late, faces);
    ASSERT_EQ(3U, dump.lines(3).size());
    send_to(again, alarm + alarm); // the second one is beyond the count
    EXPECT_EQ(0, dump.exit_status());
    const std::vector<std::string> lines = dump.lines(4);
    ASSERT_EQ(4U, lines.size());
    expect_line("fd     56  1 2 3 4 5 6 7 | 8 9 10 11 12 13 14", lines[2]);
    expect_line("ta     16  1 2 3 4", lines[3]);
}

TEST_F(DumpTest, ClosesTheConnectionOnAnAbsurdLength)
{
    const Fd listener = listen_on("vmf");
    DumpProcess dump(dir, {"-d", dir.path(), "-x", "vmf"});
    const Fd client = accept_on(listener);
    send_to(client, frame(text_of({0, 1, 0, 0x80000000})) + length_text(0x01000001));
    EXPECT_TRUE(dump.wait_for_message("vmf: absurd record length 16777217"));
    EXPECT_TRUE(sees_end_of_file(client));
    expect_line("vmf    16  00000000 00000001 00000000 80000000", dump.lines(1).at(0));
    const Fd again = accept_on(listener);
    dump.signal(SIGINT);
    EXPECT_EQ(0, dump.exit_status());
    EXPECT_TRUE(sees_end_of_file(again));
}

TEST_F(DumpTest, EndsOnASignalWhileItWaits)
{
    DumpProcess dump(dir, {"-d", dir.path()});
    for (const StreamKind &kind : STREAM_KINDS)
        ASSERT_TRUE(dump.wait_for_message(std::string(kind.name) + ": waiting"));
    dump.signal(SIGTERM);
    EXPECT_EQ(0, dump.exit_status());
}

TEST_F(DumpTest, RefusesAWrongCommandLine)
{
    const std::vector<std::string> wrong[] = {
        {"pid"}, {"-n", "0"}, {"-n", "2x"}, {"-n", "-1"}, {"-d", std::string(104, 'd')}, {"-z"}};
    for (const auto &arguments : wrong) {
        DumpProcess dump(dir, arguments);
        EXPECT_EQ(1, dump.exit_status()) << arguments.front();
    }
}

} // namespace
