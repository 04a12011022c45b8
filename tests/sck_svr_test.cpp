#include "ipc/network/sck_svr.h"
#include "ipc/network/serving.h"
#include "tests/support/client_data.h"
#include "tests/support/event_failing_new.h"
#include "tests/support/interleave.h"
#include "tests/support/ipc_loop.h"
#include "tests/support/temp_dir.h"

#include <algorithm>
#include <fstream>
#include <list>
#include <random>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

namespace
{

constexpr std::size_t frame_size = 4 + 7; // of a seven-digit number

struct Server {
    explicit Server(std::uint32_t size = 1024)
    {
        EXPECT_EQ(sck_svr_init(&handle, path.c_str(), size), 0);
    }
    ~Server() { sck_svr_release(&handle); }

    void write(const std::string &bytes) const
    {
        EXPECT_EQ(sck_svr_write(handle, bytes.data(), static_cast<std::uint32_t>(bytes.size())), 0);
    }
    int count() const { return sck_svr_get_client_count(handle); }
    // What `action` prints: no part of it while the lock is held, since printing may wait.
    template <class Action>
    std::string printed(Action action)
    {
        const auto take = [](void *arg, const char *bytes, std::size_t size) {
            auto *const server = static_cast<Server *>(arg);
            pthread_mutex_t *const lock = &server->handle->lock;
            server->held |= pthread_mutex_trylock(lock) != 0 || pthread_mutex_unlock(lock) != 0;
            server->output.append(bytes, size);
            return static_cast<ssize_t>(size);
        };
        std::FILE *const capture = fopencookie(this, "w", {nullptr, take, nullptr, nullptr});
        std::setvbuf(capture, nullptr, _IONBF, 0);
        std::FILE *const saved = std::exchange(stdout, capture);
        action();
        std::fclose(std::exchange(stdout, saved));
        EXPECT_FALSE(held);
        return std::exchange(output, {});
    }

    const TempDir dir;
    const std::string path = dir.file("server");
    const std::string refused = "Can't write data to client.sck_path=" + path + "\n";
    sck_svr_t *handle = nullptr;
    std::string output;
    bool held = false;
};

// Waits once: a test that has failed is soon over.
bool gets(LoopClient &client, const std::string &stream)
{
    const auto all = [&] { return client.receive().size() >= stream.size(); };
    return !testing::Test::HasFailure() && cycle_until(all) && client.received == stream;
}

// How often a line of this kind was printed or counted.
int told(const std::string &output, const std::string &kind)
{
    int times = 0;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(kind))
            times += line.ends_with(" more") ? std::stoi(line.substr(line.rfind(": ") + 2)) : 1;
    }
    return times;
}

TEST(SckBuf, IsAQueueOfWholeFrames)
{
    for (const std::uint32_t size : {6U, 64U, 8192U, 65536U}) {
        std::mt19937 random(size);
        sck_buf_t ring{};
        ASSERT_EQ(sck_buf_init(&ring, size), 0);
        std::string queued;
        for (int step = 0; step < 6000; ++step) {
            const auto amount =
                1 + static_cast<std::uint32_t>(random() % (step % 2 ? 15 : size + 2));
            if (random() % 2) {
                const std::string payload(amount, static_cast<char>(step));
                const bool fits = queued.size() + frame(payload).size() < size;
                ASSERT_EQ(sck_buf_has_room(ring, amount), fits);
                if (fits) {
                    sck_buf_put_frame(ring, bytes_of(payload));
                    queued += frame(payload);
                }
            } else {
                const sck_bytes run = sck_buf_first_run(ring);
                ASSERT_TRUE(run.size() == queued.size() || &run.back() == &ring.data[size - 1]);
                ASSERT_TRUE(std::equal(run.begin(), run.end(), bytes_of(queued).begin()));
                const std::size_t taken = std::min<std::size_t>(amount, run.size());
                sck_buf_take_out(ring, static_cast<std::uint32_t>(taken));
                queued.erase(0, taken);
            }
            ASSERT_EQ(ring.count, queued.size());
            ASSERT_TRUE(ring.count > 0 || (ring.readPos | ring.writePos) == 0);
        }
        for (std::uint32_t length = UINT32_MAX; length > UINT32_MAX - 5; --length)
            ASSERT_FALSE(sck_buf_has_room(ring, length)) << "with its header it wraps";
        sck_buf_release(&ring);
    }
}

TEST(SckBuf, GivesItsMemoryBack)
{
    const auto pages = [] {
        std::size_t mapped = 0;
        std::ifstream("/proc/self/statm") >> mapped;
        return mapped;
    };
    const std::size_t before = pages();
    for (int round = 0; round < 1000; ++round) {
        sck_buf_t ring{};
        sck_buf_init(&ring, 65536);
        sck_buf_release(&ring);
    }
    EXPECT_LT(pages(), before + 500);
}

TEST(SckSvr, AClientThatNeverReadsMissesRecordsAlone)
{
    Server server;
    LoopClient stalled(server.path);
    LoopClient reader(server.path);
    reader.send("ignored");
    const sck_buf_t &queue = server.handle->clients->next->send;
    std::string stream;
    const auto write = [&] {
        const std::string payload = std::to_string(1'000'000 + stream.size());
        server.write(payload);
        EXPECT_EQ(get_event_enabled(server.handle->clients->writeEvent), 1);
        EXPECT_TRUE(gets(reader, stream += frame(payload)));
        EXPECT_EQ(get_event_enabled(server.handle->clients->writeEvent), 0);
    };
    const std::string output = server.printed([&] {
        while (stream.size() < 20'000 && !HasFailure())
            write();
    });
    // Behind it there may be how many more there were in the last second.
    EXPECT_NE(output.find(server.refused), std::string::npos);
    EXPECT_TRUE(cycle_until([&] { return stalled.receive(), queue.count == 0; }));
    const std::size_t got = stalled.receive().size();
    EXPECT_TRUE(got < stream.size() && got % frame_size == 0 &&
                stream.starts_with(stalled.received));
    write();
    EXPECT_TRUE(gets(stalled, stream.substr(0, got) + stream.substr(stream.size() - frame_size)));

    while (queue.count < 500 && !HasFailure()) // then it dies in the middle of a record
        write();
    stalled.fd.reset();
    EXPECT_TRUE(server.printed(cycle).ends_with(server.path + ": client disconnect.\n"));
    EXPECT_EQ(server.count(), 1);
    write();
}

TEST(SckSvr, AClientWhoseSocketFillsAfterTheWaitIsKept)
{
    Server server;
    LoopClient client(server.path);
    server.write("la");
    set_event_enabled(server.handle->clients->writeEvent, 0);
    server.write("ter");                               // each record enables it
    const auto fill = [](event_info *, void *served) { // is called before descriptors are served
        while (send(static_cast<sck_clt_t *>(served)->socket, "fill", 4, MSG_DONTWAIT) > 0)
            ;
        return 0;
    };
    add_always_event(EVENT_ONESHOT, fill, server.handle->clients);
    EXPECT_EQ(server.printed(cycle), "write error. ret = -1, len=13\n");
    const std::string end = "fill" + frame("la") + frame("ter");
    EXPECT_TRUE(cycle_until([&] { return client.receive().ends_with(end); }));
}

TEST(SckSvr, CountsForItselfAndForEachClient)
{
    Server server;
    server.write("to nobody");
    LoopClient older(server.path);
    server.write("ab");
    EXPECT_TRUE(gets(older, frame("ab")));
    LoopClient newer(server.path);
    const std::string largest(1019, 'l');
    server.printed([&] {
        for (const char *payload : {largest.c_str(), "x", "yz"})
            server.write(payload);
    });
    const auto status = [&] {
        sck_svr_status_t told{};
        EXPECT_EQ(sck_svr_get_status(server.handle, &told), 0);
        std::vector<std::uint64_t> numbers{told.counts.records, told.counts.bytes,
                                           told.counts.refused};
        for (const auto &[pid, queued, counts] : told.clients) {
            EXPECT_EQ(pid, getpid());
            numbers.insert(numbers.end(), {queued, counts.records, counts.bytes, counts.refused});
        }
        return numbers;
    };
    EXPECT_EQ(status(),
              (std::vector<std::uint64_t>{5, 1033, 4, 1023, 1, 1019, 2, 1023, 2, 1021, 2}));
    EXPECT_TRUE(gets(older, frame("ab") + frame(largest)));
    older.fd.reset();
    newer.fd.reset();
    EXPECT_TRUE(cycle_until([&] { return server.count() == 0; }));
    EXPECT_EQ(status(), (std::vector<std::uint64_t>{5, 1033, 4}));
}

TEST(SckSvr, TimesRecordsInGroupsAndForgetsAfterAMinute)
{
    va::QueueTimer timer;
    timer.put(10, 5);
    timer.put(20, 3); // of the next group
    timer.put(30, 4); // likewise
    EXPECT_FALSE(timer.wants_time() || timer.take(4));
    EXPECT_TRUE(timer.take(2));
    EXPECT_EQ(timer.end(40, 6), 30U);
    EXPECT_TRUE(timer.wants_time() && timer.take(6));
    EXPECT_EQ(timer.end(55, 0), 35U);
    timer.put(60, 1);
    EXPECT_TRUE(timer.take(1));
    EXPECT_EQ(timer.end(61, 0), 1U);

    constexpr std::uint64_t second = 1'000'000;
    va::RecentGreatest longest;
    longest.add(9 * second, 70);
    longest.add(9 * second, 60);
    longest.add(20 * second, 50);
    EXPECT_EQ(longest.at(69 * second), 70U);
    EXPECT_EQ(longest.at(80 * second), 50U);
    longest.add(80 * second, 1); // where the first stood
    EXPECT_EQ(longest.at(90 * second), 1U);
}

TEST(SckSvr, PrintsTwentyLinesASecondAndThenHowManyMore)
{
    const struct {
        std::uint64_t now; // us
        std::uint32_t lines, printed, more;
    } steps[] = {{0, 3, 3, 0},           {999'999, 20, 17, 0},   {1'000'000, 0, 0, 3},
                 {1'000'000, 21, 20, 0}, {1'999'999, 2, 0, 0},   {2'000'000, 21, 20, 3},
                 {3'000'000, 0, 0, 1},   {9'000'005, 20, 20, 0}, {10'000'004, 1, 0, 0},
                 {10'000'005, 0, 0, 1},  {99'000'000, 0, 0, 0}};
    va::LineLimit limit;
    for (const auto &[now, lines, printed, more] : steps) {
        EXPECT_EQ(lines ? limit.take(now, lines) : 0, printed) << now;
        EXPECT_TRUE(limit.has_more() || more == 0);
        EXPECT_EQ(limit.take_more(now), more) << now;
    }
    for (const std::uint64_t now : {100'000'000U, 102'000'000U}) // nobody asks in between
        EXPECT_EQ(limit.take(now, 25), 20U);
    EXPECT_EQ(limit.take_more(104'000'000), 10U);
}

TEST(SckSvr, TwoHundredClients)
{
    Server server;
    std::list<LoopClient> clients;
    const std::string largest(1019, 'l');
    std::string output = server.printed([&] {
        while (clients.size() < 200)
            clients.emplace_back(server.path);
        server.write(largest);
        server.write("x");
    });
    // Of each kind some lines a second, then how many more there were.
    for (const std::string &line : {server.path + ": accept client", server.refused}) {
        const std::string kind = line.substr(0, line.find('\n'));
        const auto all_told = [&] {
            output += server.printed(cycle);
            return told(output, kind) == 200;
        };
        EXPECT_TRUE(output.starts_with(server.path + ": accept client. previous clients=0\n"));
        EXPECT_LT(std::ranges::count(output, '\n'), 200);
        EXPECT_TRUE(wait_until(all_told)) << output; // no cycle is missed
    }
    std::erase_if(clients, [odd = false](const LoopClient &) mutable { return odd = !odd; });
    cycle();
    clients.pop_front(); // its neighbours are new ones
    cycle();
    EXPECT_EQ(server.count(), 99);
    server.write("");
    server.write("to half");
    for (LoopClient &client : clients)
        ASSERT_TRUE(gets(client, frame(largest) + frame("to half")));
    sck_svr_release(&server.handle);
    for (const LoopClient &client : clients)
        EXPECT_TRUE(client.ended());
    cycle();
}

TEST(SckSvr, WhatCannotBeServedIsClosedAndLeavesNothing)
{
    Server server;
    LoopClient served(server.path);
    const auto before = open_descriptors();
    sck_svr_t *other = nullptr;
    const auto start = [&] { return sck_svr_init(&other, (server.path + '2').c_str(), 5) == 0; };
    EXPECT_EQ(fail_each_allocation(start), 4);
    sck_svr_release(&other);
    EXPECT_EQ(fail_each_allocation([&] { return !LoopClient(server.path).ended(); }), 5);
    cycle();
    for (int round = 0; round < 2; ++round) {
        const auto capture = [&](auto run) { return server.printed(run); };
        EXPECT_EQ(failed_accept(server.path, capture, [&] { return server.count() == 2; }),
                  "ERR## accept fail.\n");
        EXPECT_TRUE(cycle_until([&] { return server.count() == 1; }));
    }
    EXPECT_EQ(open_descriptors(), before);
    server.write("x");
    EXPECT_TRUE(gets(served, frame("x")));
    sck_svr_status_t told{};
    sck_svr_get_status(server.handle, &told);
    EXPECT_TRUE(told.listens && told.failed_accepts == 2);
    dup2(served.fd.get(), server.handle->socket);
    sck_svr_get_status(server.handle, &told);
    EXPECT_FALSE(told.listens);
}

// It keeps all of it, until the buffer is full.
TEST(SckSvr, AHandlerGetsFourKilobytesAtATime)
{
    const Server server(10'000);
    const LoopClient client(server.path);
    std::vector<std::uint32_t> ends;
    const auto keep = [](sck_clt_t *sender, void *arg) {
        sender->recv.count = sender->recv.writePos;
        sender->recv.readPos = sender->recv.count == 0; // given up: nothing more is read
        static_cast<std::vector<std::uint32_t> *>(arg)->push_back(sender->recv.count);
        return 0;
    };
    sck_svr_set_recv_callback(server.handle, keep, &ends);
    client.send(std::string(10'001, 'x'));
    cycle(), cycle(), cycle(), cycle();
    EXPECT_EQ(ends, (std::vector{4096U, 8192U, 0U, 0U}));
}

TEST(SckSvr, ARecordMayComeInBetween)
{
    const Server server;
    LoopClient client(server.path);
    server.write("a");
    std::string stream = frame("a");
    for (int n = 0; interleave(n, cycle, [&] { server.write("b"); }); ++n) {
        ASSERT_TRUE(gets(client, stream += frame("b"))) << "written after unlock " << n;
        server.write("a");
        stream += frame("a");
    }
}

TEST(SckSvr, AProducerThreadRunsBesideTheLoop)
{
    const Server server;
    const std::string rubbish(1 << 16, '\xff'); // from sixteen clients
    std::size_t handled = 0;
    const auto count = [](sck_clt_t *client, void *arg) {
        const sck_buf_t &in = client->recv;
        *static_cast<std::size_t *>(arg) += in.writePos == 0 ? in.size : in.writePos;
        return sck_clt_ignore_read(client, nullptr);
    };
    sck_svr_set_recv_callback(server.handle, count, &handled);
    testing::internal::CaptureStdout();
    std::jthread producer([&](const std::stop_token &stop) {
        sck_svr_status_t told{};
        for (int i = 1'000'000; !stop.stop_requested(); ++i, std::this_thread::yield()) {
            server.write(std::to_string(i));
            EXPECT_LE(0, sck_svr_get_status(server.handle, &told) + server.count());
        }
    });
    for (int round = 0; round < 16; ++round) {
        LoopClient client(server.path);
        client.send(rubbish);
        ASSERT_TRUE(cycle_until(
            [&] { return client.receive().size() > 2000 && handled == rubbish.size(); }));
        handled = 0;
        std::string previous;
        for (std::string &in = client.received; in.size() >= frame_size; in.erase(0, frame_size)) {
            const std::string number = in.substr(4, 7);
            ASSERT_EQ(in.substr(0, frame_size), frame(number));
            ASSERT_LT(std::exchange(previous, number), number);
        }
    }
    EXPECT_TRUE(cycle_until([&] { return server.count() == 0; }));
    testing::internal::GetCapturedStdout();
}

} // namespace
