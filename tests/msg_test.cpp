#include "ipc/msg/msg.h"
#include "tests/support/capture.h"
#include "tests/support/event_failing_new.h"
#include "tests/support/ipc_loop.h"
#include "tests/support/temp_dir.h"
#include "util/util.h"

#include <fstream>
#include <list>

#include <gtest/gtest.h>

namespace
{

using namespace std::string_literals;
using Calls = std::vector<std::string>;

const std::string read_error = "msg_read(): error ************************************!\n";

struct Handler {
    std::string tag;
    Calls *calls;
};

int note_call(void *arg, const char *data, int length)
{
    const auto *handler = static_cast<const Handler *>(arg);
    handler->calls->push_back(handler->tag + "=" +
                              std::string(data, static_cast<std::size_t>(length)));
    return -1;
}

int note_line(void *arg, const char *line, int length)
{
    EXPECT_EQ(line[length], '\0');
    return note_call(arg, line, length);
}

msg_conf conf_of(const std::string &path, std::int32_t mode)
{
    msg_conf conf{};
    path.copy(conf.path, sizeof conf.path - 1);
    conf.mode = mode;
    return conf;
}

class Server
{
protected:
    Server() { start(7); }
    ~Server() { msg_release(&handle_); }

    void start(std::int32_t mode)
    {
        msg_release(&handle_);
        EXPECT_EQ(msg_init(&handle_, conf_of(path_, mode)), 0);
        for (const char *name : {"reconfig", "Reconfig", "other"})
            msg_register(handle_, name, note_line, handler(name));
        msg_registerExtend(handle_, note_call, handler("$"));
        msg_registerOthers(handle_, note_line, handler("?"));
        EXPECT_EQ(msg_start(handle_), 0);
    }
    Handler *handler(const std::string &tag)
    {
        return &handlers_.emplace_back(Handler{tag, &calls_});
    }

    // What is called for `bytes`, written at once.
    Calls call(const std::string &bytes)
    {
        calls_.clear();
        EXPECT_EQ(pipe_write(path_.c_str(), bytes.data(), static_cast<unsigned>(bytes.size())), 0);
        cycle();
        return calls_;
    }

    const TempDir dir_;
    const std::string path_ = dir_.file("ctrl");
    std::list<Handler> handlers_;
    Calls calls_;
    msg_handle *handle_ = nullptr;
};

class Msg : public testing::Test, protected Server
{
};

TEST_F(Msg, RegistersUpToTheLimits)
{
    msg_release(&handle_);
    EXPECT_EQ(msg_init(nullptr, {}), -1);
    EXPECT_EQ(msg_release(nullptr), -1);
    EXPECT_EQ(msg_release(&handle_), 0);
    EXPECT_EQ(msg_register(handle_, "x", note_line, nullptr), -1);
    EXPECT_EQ(msg_registerExtend(handle_, note_call, nullptr), -1);
    EXPECT_EQ(msg_registerOthers(handle_, note_line, nullptr), -1);
    EXPECT_EQ(msg_start(handle_), -1);

    msg_init(&handle_, conf_of(path_, MSG_FIFO));
    const std::string longest(127, 'n');
    EXPECT_EQ(msg_register(handle_, (longest + 'n').c_str(), note_line, nullptr), -1);
    for (int i = 1; i < 128; ++i)
        ASSERT_EQ(msg_register(handle_, std::to_string(i).c_str(), note_line, nullptr), 0);
    EXPECT_EQ(msg_register(handle_, longest.c_str(), note_line, handler("longest")), 0);
    EXPECT_EQ(msg_registerExtend(handle_, note_call, nullptr), 0);
    EXPECT_EQ(msg_registerOthers(handle_, note_line, nullptr), 0);
    EXPECT_EQ(stdout_of([&] {
                  EXPECT_EQ(msg_register(handle_, "x", note_line, nullptr), -1);
                  EXPECT_EQ(msg_registerExtend(handle_, note_call, nullptr), -1);
                  EXPECT_EQ(msg_registerOthers(handle_, note_line, nullptr), -1);
              }),
              "msg_register(): Can't register. Reach max config number 128!\n"
              "msg_registerExtend: Already register before !\n"
              "msg_registerOthers(): Can't register. Already set before !\n");
    EXPECT_EQ(msg_start(handle_), 0);
    EXPECT_EQ(call(longest + "\n"), Calls{"longest=" + longest});
}

TEST_F(Msg, RefusesWhatMemoryIsShortFor)
{
    for (const std::int32_t mode : {MSG_FIFO, MSG_SOCKET}) {
        msg_release(&handle_);
        unlink(path_.c_str());
        const auto before = open_descriptors();
        const auto build = [&] {
            const bool built = msg_init(&handle_, conf_of(path_, mode)) == 0 &&
                               msg_register(handle_, "x", note_line, nullptr) == 0 &&
                               msg_registerExtend(handle_, note_call, nullptr) == 0 &&
                               msg_registerOthers(handle_, note_line, nullptr) == 0 &&
                               msg_start(handle_) == 0;
            msg_release(&handle_);
            return built;
        };
        EXPECT_EQ(stdout_of([&] { EXPECT_GE(fail_each_allocation(build), 5); }),
                  "msg_init:Can't alloc memory!\nmsg_registerExtend: Can't alloc memory !\n"s +
                      (mode == MSG_FIFO ? "msg_start: fail !\n" : ""));
        EXPECT_EQ(open_descriptors(), before);
    }
}

TEST_F(Msg, CallsWhatTheItemsOfOneReadName)
{
    struct Case {
        std::string bytes;
        Calls calls;
    };
    const Case cases[] = {
        {"reconfig\n", {"reconfig=reconfig", "Reconfig=reconfig"}},
        {"RECONFIG::a::b\n", {"reconfig=RECONFIG::a::b", "Reconfig=RECONFIG::a::b"}},
        {"oth", {}},
        {"er\n", {"other=other"}},
        {"other:a\nother \nothe\nothers\n", {"?=other:a", "?=other ", "?=othe", "?=others"}},
        {"other\r\n\n::other\n", {"?=other\r", "?=", "?=::other"}},
        {"other\nother::2\nlast\n", {"other=other", "?=last"}},
        {"other\n", {"other=other"}},
        {"$x\3\0abc"s, {"$=$x\3\0abc"s}},
        {"$\n\0\0other\n$x\6\0other\n"s, {"$=$\n\0\0"s, "other=other", "$=$x\6\0other\n"s}},
        {"$other\n", {}}, // a frame of 0x6874 bytes: never complete
    };
    for (const auto &[bytes, calls] : cases)
        EXPECT_EQ(call(bytes), calls) << bytes;
    msg_release(&handle_);
    start(MSG_FIFO);
    EXPECT_EQ(call("o\0r\nother\n"s), Calls{}); // nor is a line with a zero byte
}

TEST_F(Msg, FramesAreSkippedAndLinesIgnoredWithoutHandlers)
{
    msg_release(&handle_);
    msg_init(&handle_, conf_of(path_, MSG_FIFO));
    msg_register(handle_, "other", note_line, handler("other"));
    EXPECT_EQ(msg_start(handle_), 0);
    EXPECT_EQ(call("$x\6\0other\nunknown\nother::1\n"s), Calls{"other=other::1"});
    EXPECT_EQ(handle_->used, 0);
}

TEST_F(Msg, ItemsMayBeSplitAnywhere)
{
    const std::string stream = "other::1\n$f\5\0a\nb\0cunknown\n$f\0\0\nreconfig\n"s;
    const Calls all = call(stream);
    EXPECT_EQ(all.size(), 7U);
    for (std::size_t split = 1; split < stream.size(); ++split) {
        Calls calls = call(stream.substr(0, split));
        for (const std::string &later : call(stream.substr(split)))
            calls.push_back(later);
        ASSERT_EQ(calls, all) << split;
    }
}

TEST_F(Msg, ItemsOf4095BytesAreTheLongest)
{
    const std::string line(4094, 'l');
    const std::string frame = "$f\xfb\x0f"s + std::string(4091, '\n');
    EXPECT_EQ(call(line + "\n"), Calls{"?=" + line});
    EXPECT_EQ(call(frame), Calls{"$=" + frame});
    EXPECT_EQ(call("other\n" + frame), Calls{"other=other"}); // the buffer holds 4089 bytes of it
    EXPECT_EQ(stdout_of([] { cycle(); }), "");
    EXPECT_EQ(calls_.back(), "$=" + frame);

    for (const std::string &endless : {line + "l", "$f\xfc\x0f"s + line.substr(3)}) {
        start(MSG_FIFO);
        const auto before = open_descriptors();
        EXPECT_EQ(call(endless), Calls{});
        const Fd writer(file_open(path_.c_str())); // keeps the next bytes readable
        EXPECT_EQ(stdout_of([&] { EXPECT_EQ(call("\nother\n"), Calls{}); }), read_error);
        EXPECT_EQ(stdout_of([&] { EXPECT_EQ(call("other\n"), Calls{}); }), "");
        EXPECT_EQ(open_descriptors(), before); // the writer's for the server's
    }
}

TEST_F(Msg, WithoutAFifoThereIsNoChannel)
{
    msg_release(&handle_);
    std::filesystem::remove(path_);
    std::ofstream(path_) << "other\n"; // a regular file, found empty when started
    const auto before = open_descriptors();
    start(MSG_FIFO);
    EXPECT_EQ(stdout_of([] { cycle(), cycle(); }), read_error);
    EXPECT_EQ(open_descriptors(), before);

    msg_release(&handle_);
    msg_init(&handle_, conf_of(dir_.file("missing/fifo"), MSG_FIFO));
    const std::string output = stdout_of([&] { EXPECT_EQ(msg_start(handle_), -1); });
    EXPECT_TRUE(output.ends_with("msg_start: fail !\n"));
}

TEST_F(Msg, SocketAnswersAConnectionOnceAndClosesIt)
{
    start(MSG_SOCKET);
    LoopClient first(path_);
    first.send("oth");
    cycle();
    EXPECT_EQ(first.receive().received(), "");
    EXPECT_FALSE(first.ended());
    Fd reused; // the connection's descriptor, free again when the second item is handled
    const auto reuse = [](void *fd, const char *, int) {
        *static_cast<Fd *>(fd) = Fd(dup(STDIN_FILENO));
        return 0;
    };
    EXPECT_EQ(msg_register(handle_, "reconfig", reuse, &reused), 0);
    first.send("er::1\nunknown\n$x\0\0reconfig\n\nrest"s);
    cycle();
    EXPECT_NE(fcntl(reused.get(), F_GETFD), -1);
    const Calls calls = {"other=other::1",    "?=unknown",         "$=$x\0\0"s,
                         "reconfig=reconfig", "Reconfig=reconfig", "?="};
    EXPECT_EQ(calls_, calls);
    EXPECT_EQ(first.receive().received(), "OK\n");
    EXPECT_TRUE(first.receive().ended());

    LoopClient second(path_);
    second.send(" of it\n");
    cycle();
    EXPECT_EQ(second.receive().received(), "OK\n");
    EXPECT_EQ(calls_.back(), "?=rest of it");

    LoopClient gone(path_);
    gone.send("other::gone\n");
    gone.close(); // before its reply
    EXPECT_EQ(stdout_of([] { cycle(); }), "");
    EXPECT_EQ(calls_.back(), "other=other::gone");

    LoopClient silent(path_);
    silent.close();
    EXPECT_EQ(stdout_of([] { cycle(); }), read_error);
}

TEST_F(Msg, ReleaseLeavesNoDescriptorAndNoEvent)
{
    msg_release(&handle_);
    const auto before = open_descriptors();
    {
        start(MSG_SOCKET);
        std::list<LoopClient> clients;
        for (int i = 0; i < 20; ++i)
            clients.emplace_back(path_).send("oth");
        cycle();
        clients.back().send("er");
        EXPECT_EQ(msg_release(&handle_), 0);
        EXPECT_EQ(handle_, nullptr);
        cycle();
        for (LoopClient &client : clients)
            EXPECT_TRUE(client.receive().ended());
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Msg, ConnectionsBeyondTheDescriptorsAreClosed)
{
    struct Case {
        rlim_t limit;
        int left; // descriptors: for the client, or also for its connection
        std::string output;
    };
    start(MSG_SOCKET);
    for (const Case &shortage :
         {Case{100, 1, "unix_domain_socket_accept() accept fail\n"},
          Case{FD_SETSIZE + 8, 2, "socket_accept(): can't serve client.\n"}}) {
        std::string standard_output;
        std::string error_output = stderr_of([&] {
            standard_output = stdout_of([&] {
                const FewDescriptors few(shortage.limit, shortage.left);
                LoopClient refused(path_);
                EXPECT_TRUE(refused.receive().ended());
                cycle();
            });
        });
        EXPECT_EQ(error_output + standard_output, shortage.output);
    }
    LoopClient late(path_);
    late.send("other\n");
    cycle();
    EXPECT_EQ(late.receive().received(), "OK\n");
}

} // namespace
