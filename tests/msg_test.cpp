#include "ipc/msg/msg.h"
#include "tests/support/capture.h"
#include "tests/support/event_failing_new.h"
#include "tests/support/ipc_loop.h"
#include "tests/support/temp_dir.h"
#include "util/util.h"

#include <fstream>

#include <gtest/gtest.h>

namespace
{

using namespace std::string_literals;
using Calls = std::vector<std::string>;

Calls calls; // the tag of the handler and what it was called with

int note(void *tag, const char *data, int length)
{
    EXPECT_TRUE(*data == '$' || data[length] == '\0');
    const std::string item(data, static_cast<std::size_t>(length));
    calls.push_back(*static_cast<const std::string *>(tag) + "=" + item);
    return -1;
}

const std::string read_error = "msg_read(): error ************************************!\n";

struct Msg : testing::Test {
    ~Msg() override { msg_release(&handle); }

    bool start(std::int32_t mode)
    {
        msg_release(&handle);
        msg_conf conf{};
        path.copy(conf.path, sizeof conf.path - 1);
        conf.mode = mode;
        return msg_init(&handle, conf) == 0 && msg_register(handle, "first", note, &tags[0]) == 0 &&
               msg_register(handle, "First", note, &tags[1]) == 0 &&
               msg_registerExtend(handle, note, &tags[2]) == 0 &&
               msg_registerOthers(handle, note, &tags[3]) == 0 && msg_start(handle) == 0;
    }
    // What is called for `bytes`, written in two pieces.
    Calls call(const std::string &bytes, std::size_t split = 0) const
    {
        calls.clear();
        for (const std::string &piece : {bytes.substr(0, split), bytes.substr(split)}) {
            pipe_write(path.c_str(), piece.data(), static_cast<unsigned>(piece.size()));
            cycle();
        }
        return calls;
    }

    const TempDir dir;
    std::string path = dir.file("ctrl");
    std::string tags[4] = {"1", "2", "$", "?"};
    msg_handle *handle = nullptr;
};

TEST_F(Msg, RegistersUpToTheLimits)
{
    EXPECT_TRUE(start(7));
    const std::string longest(127, 'n');
    EXPECT_EQ(msg_register(handle, (longest + "n").c_str(), note, nullptr), -1);
    while (handle->count < 127)
        msg_register(handle, "x", note, nullptr);
    EXPECT_EQ(msg_register(handle, longest.c_str(), note, &tags[0]), 0);
    EXPECT_EQ(msg_register(handle, "x", note, nullptr), -1);
    delete std::exchange(handle->extend, nullptr);
    delete std::exchange(handle->others, nullptr);
    EXPECT_EQ(call("$x\6\0other\nunknown\n"s + longest + "::1\n"), Calls{"1=" + longest + "::1"});
}

TEST_F(Msg, ReadsItemsHoweverTheyAreJoinedAndSplit)
{
    const std::pair<std::string, Calls> streams[] = {
        {"FIRST::a::b\nfirst:a\n", {"1=FIRST::a::b", "2=FIRST::a::b", "?=first:a"}},
        {"first\r\n\n::first\nfirs\nfirsts\n",
         {"?=first\r", "?=", "?=::first", "?=firs", "?=firsts"}},
        {"$\n\0\0first\n$x\6\0first\n"s, {"$=$\n\0\0"s, "1=first", "2=first", "$=$x\6\0first\n"s}},
        {"f\0r\nfirst\n"s, {}}, // a line with a zero byte is never complete
    };
    EXPECT_TRUE(start(MSG_FIFO));
    EXPECT_EQ(call("first\nfirst::2\nlast\n"), (Calls{"1=first", "2=first", "?=last"}));
    for (const auto &[bytes, expected] : streams) {
        for (std::size_t split = 0; split < bytes.size(); ++split)
            EXPECT_EQ(call(bytes, split), expected) << bytes << split;
    }
    EXPECT_TRUE(start(MSG_FIFO));
    const std::string longest = "$f\xfb\x0f" + std::string(4091, '\n');
    EXPECT_EQ(call(longest), Calls{"$=" + longest});
}

TEST_F(Msg, GoesOnWhenAnotherReaderWasFirst)
{
    EXPECT_TRUE(start(MSG_FIFO));
    const Fd other(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    event source{};
    source.fd = other.get();
    event_info info{&source, EVENT_FD, 0};
    EXPECT_EQ(stdout_of([&] { msg_read(&info, handle); }), "");
    EXPECT_EQ(call("first\n"), (Calls{"1=first", "2=first"}));
}

TEST_F(Msg, TellsOfLinesThatNameNoCommand)
{
    EXPECT_TRUE(start(MSG_FIFO));
    delete std::exchange(handle->others, nullptr);
    call(std::string(4094, 'l') + "\n");
    msg_unknown unknown{};
    EXPECT_EQ(msg_get_unknown(handle, &unknown), 0);
    EXPECT_EQ(std::to_string(unknown.count) + unknown.last, "1" + std::string(63, 'l'));
    call("first\n$x\1\0l\nerst\x1b[2J\xfc\n"s);
    msg_get_unknown(handle, &unknown);
    EXPECT_EQ(std::to_string(unknown.count) + unknown.last, "3erst?[2J?");
}

TEST_F(Msg, WhatEndsTheFifoChannel)
{
    const auto before = open_descriptors();
    const std::string line(4094, 'l');
    for (const std::string &endless :
         {line + "l", "$f\xfc\x0f"s + line.substr(3), "$f\xff\xff"s + line.substr(3)}) {
        EXPECT_TRUE(start(MSG_FIFO));
        EXPECT_EQ(call(line + "\n"), Calls{"?=" + line});
        EXPECT_EQ(
            stdout_of([&] { EXPECT_EQ(call(endless + "\nfirst\n", endless.size()), Calls{}); }),
            read_error);
        EXPECT_EQ(open_descriptors(), before);
    }
    unlink(path.c_str());
    std::ofstream(path) << "kept"; // no FIFO, and not to be emptied
    EXPECT_EQ(stdout_of([&] { EXPECT_FALSE(start(MSG_FIFO)); }), "msg_start: fail !\n");
    EXPECT_EQ(std::filesystem::file_size(path), 4U);
    path = dir.file("missing/fifo");
    EXPECT_TRUE(stdout_of([&] { EXPECT_FALSE(start(7)); }).ends_with("msg_start: fail !\n"));
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Msg, SocketAnswersAConnectionOnceAndClosesIt)
{
    Fd reused; // the connection's descriptor, free again when a later item is handled
    const auto reuse = [](void *fd, const char *, int) {
        *static_cast<Fd *>(fd) = Fd(dup(STDIN_FILENO));
        return 0;
    };
    EXPECT_TRUE(start(MSG_SOCKET));
    msg_register(handle, "reuse", reuse, &reused);
    LoopClient client(path);
    client.send("fir");
    cycle();
    EXPECT_FALSE(client.ended());
    client.send("st::1\nunknown\n$x\0\0reuse\n\nrest"s);
    cycle();
    EXPECT_NE(fcntl(reused.get(), F_GETFD), -1);
    EXPECT_EQ(client.receive(), "OK\n");
    EXPECT_TRUE(client.ended());

    LoopClient gone(path);
    gone.send(" of it\n");
    gone.fd.reset(); // before its reply
    LoopClient(path).fd.reset();
    EXPECT_EQ(stdout_of(cycle), read_error); // of the silent one
    EXPECT_EQ(calls,
              (Calls{"1=first::1", "2=first::1", "?=unknown", "$=$x\0\0"s, "?=", "?=rest of it"}));
}

TEST_F(Msg, NothingIsLeftOfWhatFailsOrIsReleased)
{
    const auto before = open_descriptors();
    for (const std::int32_t mode : {MSG_SOCKET, MSG_FIFO}) {
        unlink(path.c_str());
        const auto start_it = [&] { return start(mode) || open_descriptors() != before; };
        EXPECT_EQ(fail_each_allocation(start_it), mode == MSG_FIFO ? 6 : 7);
    }
    EXPECT_TRUE(start(MSG_SOCKET));
    const LoopClient client(path);
    const auto capture = [](auto run) { return stderr_of(run); };
    const auto served = [connected = open_descriptors() + 2] { // both ends of the connection
        return open_descriptors() == connected;
    };
    EXPECT_EQ(failed_accept(path, capture, served), "unix_domain_socket_accept() accept fail\n");
    EXPECT_EQ(stdout_of([] { cycle(); }), read_error); // of its end
    client.send("first\n");
    msg_release(&handle);
    EXPECT_EQ(stdout_of(cycle), "");
    EXPECT_TRUE(client.ended());
    EXPECT_EQ(open_descriptors(), before + 1); // the client's
}

} // namespace
