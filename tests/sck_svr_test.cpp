#include "ipc/network/sck_svr.h"
#include "tests/support/capture.h"
#include "tests/support/event_failing_new.h"
#include "tests/support/ipc_loop.h"
#include "tests/support/temp_dir.h"

#include <cstring>
#include <list>
#include <random>
#include <thread>

#include <gtest/gtest.h>
#include <sys/ioctl.h>

namespace
{

std::string frame(const std::string &payload)
{
    std::string bytes(sizeof(std::uint32_t), '\0');
    const auto length = static_cast<std::uint32_t>(payload.size());
    std::memcpy(bytes.data(), &length, sizeof length);
    return bytes + payload;
}

void shrink_socket_buffer(int fd)
{
    const int smallest = 1; // raised to the system's minimum
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &smallest, sizeof smallest);
}

// Not polymorphic: the sanitizer's check of a polymorphic object needs a descriptor, and one test
// leaves it none.
class Server
{
protected:
    Server() { start(1024); }
    ~Server() { sck_svr_release(&server_); }

    void start(std::uint32_t size)
    {
        sck_svr_release(&server_);
        EXPECT_EQ(sck_svr_init(&server_, path_.c_str(), size), 0);
    }
    void write(const std::string &payload) const
    {
        EXPECT_EQ(
            sck_svr_write(server_, payload.data(), static_cast<std::uint32_t>(payload.size())), 0);
    }
    bool gets(LoopClient &client, const std::string &stream) const
    {
        return cycle_until([&] { return client.receive().received().size() >= stream.size(); }) &&
               client.received() == stream;
    }
    bool count_becomes(int count) const
    {
        return cycle_until([&] { return sck_svr_get_client_count(server_) == count; });
    }

    const TempDir dir_;
    const std::string path_ = dir_.file("server");
    const std::string refused_ = "Can't write data to client.sck_path=" + path_ + "\n";
    sck_svr_t *server_ = nullptr;
};

class SckSvr : public testing::Test, protected Server
{
};

TEST_F(SckSvr, RefusesWhatItCannotServe)
{
    sck_svr_t *none = nullptr;
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(sck_svr_init(&none, nullptr, 1024), -1); }),
              "sck_svr_init: error\n");
    EXPECT_EQ(sck_svr_init(nullptr, dir_.file("x").c_str(), 1024), -1);
    EXPECT_EQ(sck_svr_init(&none, dir_.file("small").c_str(), 4), -1);
    sck_svr_release(nullptr);
    EXPECT_EQ(sck_svr_init(&none, dir_.file(std::string(108, 'p')).c_str(), 1024), -1);
    const auto before = open_descriptors();
    EXPECT_GT(fail_each_allocation([&] {
                  const bool made = sck_svr_init(&none, dir_.file("x").c_str(), 8) == 0;
                  EXPECT_EQ(none != nullptr, made);
                  sck_svr_release(&none);
                  EXPECT_EQ(none, nullptr);
                  return made;
              }),
              0);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(sck_svr_write(nullptr, "x", 1), -1);
    EXPECT_EQ(sck_svr_get_client_count(nullptr), -1);
    EXPECT_EQ(sck_svr_set_recv_callback(nullptr, sck_clt_ignore_read, nullptr), -1);
}

TEST_F(SckSvr, FramesUpToTheBufferSizeLessFiveAreWhole)
{
    write("nobody is there");
    LoopClient one(path_);
    LoopClient two(path_);
    write("");
    std::string stream;
    for (int i = 0; i < 5;
         ++i) { // each begins one byte nearer: lengths are split 1 + 3, 2 + 2, ...
        const std::string largest(1019, static_cast<char>('a' + i));
        write(largest);
        EXPECT_EQ(stdout_of([&] { write("x"); }), refused_ + refused_);
        stream += frame(largest);
        EXPECT_TRUE(gets(one, stream) && gets(two, stream));
    }
    EXPECT_EQ(stdout_of([&] { write(std::string(1020, 'c')); }), refused_ + refused_);
    for (std::uint32_t length = UINT32_MAX; length >= UINT32_MAX - 4; --length) { // + 4 wraps
        EXPECT_EQ(stdout_of([&] { EXPECT_EQ(sck_svr_write(server_, "x", length), 0); }),
                  refused_ + refused_);
    }
    write("last");
    EXPECT_TRUE(gets(one, stream + frame("last")) && gets(two, stream + frame("last")));
}

TEST_F(SckSvr, RingIsAQueueOfWholeFrames)
{
    for (const std::uint32_t size : {6U, 64U, 8192U}) {
        std::mt19937 random(size);
        start(size);
        LoopClient client(path_);
        shrink_socket_buffer(server_->clients->socket);
        std::string accepted;
        std::string refusals;
        const auto queued = [&] {
            int in_socket = 0;
            ioctl(client.fd(), FIONREAD, &in_socket);
            return accepted.size() - client.received().size() - static_cast<unsigned>(in_socket);
        };
        const std::string output = stdout_of([&] {
            for (int step = 0; step < 6000; ++step) {
                const auto action = random() % 3;
                const auto amount = random() % (random() % 2 ? 16 : size + 2);
                if (action == 0)
                    cycle();
                else if (action == 1)
                    client.receive(amount + 1);
                else {
                    const std::string payload(amount, static_cast<char>(step));
                    const bool fits = queued() + frame(payload).size() < size;
                    write(payload);
                    if (amount > 0)
                        (fits ? accepted : refusals) += fits ? frame(payload) : refused_;
                }
                ASSERT_EQ(server_->clients->send.count, queued());
                ASSERT_EQ(get_event_enabled(server_->clients->writeEvent), queued() > 0);
            }
        });
        EXPECT_TRUE(output == refusals) << size;
        EXPECT_TRUE(gets(client, accepted)) << size;
    }
}

TEST_F(SckSvr, ClientThatNeverReadsMissesRecordsAlone)
{
    LoopClient stalled(path_);
    shrink_socket_buffer(server_->clients->socket);
    LoopClient reader(path_);
    std::string stream;
    std::list<std::string> missing;
    testing::internal::CaptureStdout();
    for (int i = 0; i < 400; ++i) {
        const std::string payload = std::to_string(i) + std::string(60, 'x');
        write(payload);
        stream += frame(payload);
        ASSERT_TRUE(gets(reader, stream));
    }
    EXPECT_NE(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(sck_svr_get_client_count(server_), 2);
    // What it got before it was full, up to the last frame that fitted, and nothing after that.
    EXPECT_LT(1023 - server_->clients->next->send.count, 4 + 60 + 3);
    cycle_until([&] { return stalled.receive(), server_->clients->next->send.count == 0; });
    const std::size_t got = stalled.receive().received().size();
    EXPECT_TRUE(stream.starts_with(stalled.received()) && got > 1023 && got < stream.size());
    write("again");
    EXPECT_TRUE(gets(stalled, stream.substr(0, got) + frame("again")));
}

TEST_F(SckSvr, RemovesClientsThatWentAway)
{
    start(65536);
    LoopClient other(path_);
    LoopClient idle(path_);
    idle.close();
    EXPECT_EQ(stdout_of([&] { EXPECT_TRUE(count_becomes(1)); }),
              "sck_clt_event_read: client disconnect.\n");

    LoopClient in_mid_record(path_);
    shrink_socket_buffer(server_->clients->socket);
    const std::string record(60000, 'r');
    write(record);
    cycle();
    EXPECT_GT(server_->clients->send.count, 0U);
    const auto left = std::to_string(server_->clients->send.count);
    in_mid_record.close();
    EXPECT_EQ(stdout_of([&] { EXPECT_TRUE(count_becomes(1)); }),
              "write error. ret = -1, len=" + left + "\n" + path_ + ": client disconnect.\n");
    EXPECT_TRUE(gets(other, frame(record)));
}

TEST_F(SckSvr, FullSocketIsTriedAgain)
{
    LoopClient client(path_);
    const auto fill_socket = [](event_info *info, void *) {
        while (send(info->event->fd, "fill", 4, MSG_DONTWAIT) > 0) {
        }
        return 0;
    };
    // Runs before the client's handler, which was told that the socket is writable.
    add_fd_event(server_->clients->socket, 1, EVENT_ONESHOT, fill_socket, nullptr);
    write("record");
    EXPECT_EQ(stdout_of(cycle), "write error. ret = -1, len=10\n");
    EXPECT_TRUE(cycle_until([&] { return client.receive().received().ends_with("record"); }));
}

TEST_F(SckSvr, TwoHundredClients)
{
    std::list<LoopClient> clients;
    std::string output = stdout_of([&] {
        while (clients.size() < 200)
            clients.emplace_back(path_);
    });
    EXPECT_TRUE(output.ends_with(path_ + ": accept client. previous clients=199\n"));
    write("to all");
    for (LoopClient &client : clients)
        EXPECT_TRUE(gets(client, frame("to all")));
    for (auto client = clients.begin(); client != clients.end();)
        client = std::distance(clients.begin(), client) % 2 ? clients.erase(client) : ++client;
    output = stdout_of([&] { EXPECT_TRUE(count_becomes(static_cast<int>(clients.size()))); });
    write("to half");
    EXPECT_TRUE(gets(clients.back(), frame("to all") + frame("to half")));
    sck_svr_release(&server_);
    for (LoopClient &client : clients)
        EXPECT_TRUE(client.receive().ended());
    cycle();
}

TEST_F(SckSvr, RubbishFromAClientIsThrownAway)
{
    start(65536);
    LoopClient client(path_);
    std::string rubbish((1 << 20) + 1, '\xff');
    ASSERT_TRUE(cycle_until([&] {
        rubbish.erase(0, static_cast<std::size_t>(std::max<ssize_t>(client.send(rubbish), 0)));
        return rubbish.empty();
    }));
    EXPECT_EQ(server_->clients->recv.writePos, 0U);
    write("still served");
    EXPECT_TRUE(gets(client, frame("still served")));
}

TEST_F(SckSvr, ReceiveHandlerMayKeepIncompleteData)
{
    start(8);
    std::string words;
    const auto take_words = [](sck_clt_t *client, void *arg) {
        sck_buf_t &in = client->recv;
        std::string held(in.data.get(), in.data.get() + (in.writePos ? in.writePos : in.size));
        const std::size_t whole = held.find_last_of(' ') + 1; // 0 when there is none
        static_cast<std::string *>(arg)->append(held, 0, whole);
        std::copy(in.data.get() + whole, in.data.get() + held.size(), in.data.get());
        in.readPos = 0;
        in.count = in.writePos = static_cast<std::uint32_t>(held.size() - whole);
        return 0;
    };
    EXPECT_EQ(sck_svr_set_recv_callback(server_, take_words, &words), 0);
    LoopClient client(path_);
    const std::string sent = "one two three 1234567 four ";
    client.send(sent);
    EXPECT_TRUE(cycle_until([&] { return words.size() == sent.size(); }));
    EXPECT_EQ(words, sent);
}

TEST_F(SckSvr, ClientWithoutMemoryIsClosedAndTheOthersAreServed)
{
    LoopClient served(path_);
    const auto before = open_descriptors();
    EXPECT_GT(fail_each_allocation([&] {
                  LoopClient client(path_);
                  const bool accepted = sck_svr_get_client_count(server_) == 2;
                  EXPECT_NE(client.receive().ended(), accepted);
                  return accepted;
              }),
              0);
    EXPECT_TRUE(count_becomes(1));
    EXPECT_EQ(open_descriptors(), before);
    write("x");
    EXPECT_TRUE(gets(served, frame("x")));
}

TEST_F(SckSvr, ClientBeyondTheDescriptorsIsClosedAndTheOthersAreServed)
{
    struct Case {
        rlim_t limit;
        int left; // descriptors: for the client, or also for its connection
        std::string output;
    };
    const std::string accepted = path_ + ": accept client. previous clients=1\n";
    const Case cases[] = {
        {100, 1, "ERR## accept fail.\n"},
        {FD_SETSIZE + 8, 2, accepted + path_ + ": can't serve client.\n"},
    };
    LoopClient served(path_);
    std::string stream;
    for (const Case &shortage : cases) {
        EXPECT_EQ(stdout_of([&] {
                      const FewDescriptors few(shortage.limit, shortage.left);
                      for (int i = 0; i < 2; ++i) {
                          LoopClient refused(path_);
                          write("x");
                          EXPECT_TRUE(gets(served, stream += frame("x")));
                          EXPECT_TRUE(refused.receive().ended());
                          cycle();
                      }
                  }),
                  shortage.output + shortage.output);
    }
    LoopClient late(path_);
    EXPECT_EQ(sck_svr_get_client_count(server_), 2);
}

TEST_F(SckSvr, ProducerThreadRunsBesideTheLoop)
{
    start(4096);
    event *const tick = add_timer_event(
        1, 0, [](event_info *, void *) { return 0; }, nullptr);
    std::atomic<bool> finished = false;
    testing::internal::CaptureStdout();
    std::thread loop([] { event_loop(0); });
    std::thread producer([&] {
        for (std::uint32_t i = 0; !finished; ++i) {
            std::vector<std::uint32_t> record(1 + i % 50, i);
            sck_svr_write(server_, record.data(), static_cast<std::uint32_t>(record.size() * 4));
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
    });
    for (int round = 0; round < 20; ++round) {
        int fd = -1;
        ASSERT_EQ(unix_domain_socket_connect(&fd, path_.c_str()), 0);
        const Fd client(fd);
        std::uint32_t previous = 0;
        for (int n = 0; n < 50; ++n) {
            int length = 0;
            ASSERT_EQ(full_read(fd, &length, 4), 4);
            std::vector<std::uint32_t> record(static_cast<std::size_t>(length) / 4);
            ASSERT_EQ(full_read(fd, record.data(), length), length);
            ASSERT_EQ(record, std::vector<std::uint32_t>(1 + record[0] % 50, record[0]));
            ASSERT_TRUE(n == 0 || record[0] > previous);
            previous = record[0];
        }
    }
    EXPECT_TRUE(wait_until([&] { return sck_svr_get_client_count(server_) == 0; }));
    finished = true;
    producer.join();
    exit_event_loop();
    loop.join();
    remove_event(tick);
    testing::internal::GetCapturedStdout();
}

} // namespace
