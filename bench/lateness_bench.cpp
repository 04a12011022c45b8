#include "bench/median.h"
#include "bench/quiet.h"
#include "client/frame_reader.h"
#include "event/internal.h"
#include "event/soft_queue.h"
#include "ipc/network/sck_svr.h"
#include "ipc/network/socket.h"
#include "tests/support/temp_dir.h"
#include "util/fd.h"
#include "va/process.h"
#include "va/va.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/thread.h>
#include <sys/epoll.h>
#include <sys/socket.h>

// How late a record is at its clients: from its production on one thread, by a loop on a second, to
// its arrival on a third. As the daemon does it, and with libevent's buffered sockets. The two take
// turns, so that they see the same machine.

namespace
{

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

struct Record {
    Clock::time_point produced = Clock::now();
    char payload[112] = {};
};

// A thread that reads what arrives at the clients and keeps how late it was.
class Readers
{
public:
    explicit Readers(std::vector<Fd> clients)
        : clients_(std::move(clients)), frames_(clients_.size())
    {
        for (std::uint32_t i = 0; i < clients_.size(); ++i) {
            epoll_event readable{EPOLLIN, {.u32 = i}};
            epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, clients_[i].get(), &readable);
        }
        thread_ = std::jthread([this](const std::stop_token &stop) { run(stop); });
    }

    // Whether each client has now received `count` records in all.
    bool wait_for(std::size_t count) const
    {
        const auto deadline = Clock::now() + std::chrono::seconds(10);
        while (arrived_ < count * clients_.size() && Clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        return arrived_ == count * clients_.size();
    }

    // In the order of arrival, microseconds; once wait_for() has returned.
    std::vector<double> lateness;

private:
    void run(const std::stop_token &stop)
    {
        epoll_event ready[64];
        while (!stop.stop_requested()) {
            const int count = epoll_wait(epoll_.get(), ready, 64, 10);
            for (int i = 0; i < count; ++i)
                read_all(ready[i].data.u32);
        }
    }
    void read_all(std::size_t client)
    {
        std::uint8_t bytes[4096];
        const ssize_t got = recv(clients_[client].get(), bytes, sizeof bytes, MSG_DONTWAIT);
        if (got <= 0)
            return;
        frames_[client].append({bytes, static_cast<std::size_t>(got)});
        std::span<const std::uint8_t> payload;
        while (frames_[client].next(payload) == va::FrameReader::Result::Frame) {
            Record record;
            const auto now = Clock::now();
            std::memcpy(static_cast<void *>(&record), payload.data(), sizeof record);
            lateness.push_back(Microseconds(now - record.produced).count());
            ++arrived_;
        }
    }

    std::vector<Fd> clients_;
    std::vector<va::FrameReader> frames_;
    Fd epoll_{epoll_create1(EPOLL_CLOEXEC)};
    std::atomic<std::size_t> arrived_{0};
    std::jthread thread_;
};

// The server, the bound on the loop's wait and the wake that the daemon has.
class Daemon
{
public:
    Daemon() : loop_([] { event_loop(0); }) {}
    ~Daemon()
    {
        exit_event_loop();
        soft_queue_add(wake_, 0);
        loop_.join();
        sck_svr_release(&server_);
        free_soft_queue(&wake_);
    }
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    std::vector<Fd> connect(std::size_t count)
    {
        std::vector<Fd> clients;
        while (clients.size() < count) {
            int connected = -1;
            unix_domain_socket_connect(&connected, path_.c_str());
            clients.emplace_back(connected);
        }
        while (sck_svr_get_client_count(server_) < static_cast<int>(count))
            std::this_thread::yield();
        return clients;
    }
    void send(const Record &record)
    {
        sck_svr_write(server_, &record, sizeof record);
        soft_queue_add(wake_, 0);
    }

private:
    sck_svr_t *new_server()
    {
        sck_svr_t *server = nullptr;
        sck_svr_init(&server, path_.c_str(), 65536);
        return server;
    }

    Quiet quiet_;
    TempDir dir_;
    const std::string path_ = dir_.file("od");
    sck_svr_t *server_ = new_server();
    soft_queue *wake_ = va_new_wake();
    va::EventOwner bound_{add_timer_event(100, 0, null_timer, nullptr)};
    std::jthread loop_;
};

class Libevent
{
public:
    Libevent()
        : base_(new_base()), loop_([this] { event_base_loop(base_, EVLOOP_NO_EXIT_ON_EMPTY); })
    {
    }
    ~Libevent()
    {
        event_base_loopbreak(base_);
        loop_.join();
        for (bufferevent *client : clients_)
            bufferevent_free(client);
        event_base_free(base_);
    }
    Libevent(const Libevent &) = delete;
    Libevent &operator=(const Libevent &) = delete;

    std::vector<Fd> connect(std::size_t count)
    {
        std::vector<Fd> clients;
        while (clients.size() < count) {
            int ends[2];
            socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends);
            clients.emplace_back(ends[0]);
            clients_.push_back(
                bufferevent_socket_new(base_, ends[1], BEV_OPT_THREADSAFE | BEV_OPT_CLOSE_ON_FREE));
        }
        return clients;
    }
    void send(const Record &record)
    {
        const std::uint32_t length = sizeof record;
        for (bufferevent *client : clients_) {
            bufferevent_lock(client);
            bufferevent_write(client, &length, sizeof length);
            bufferevent_write(client, &record, sizeof record);
            bufferevent_unlock(client);
        }
    }

private:
    static event_base *new_base()
    {
        evthread_use_pthreads();
        return event_base_new();
    }

    event_base *base_;
    std::vector<bufferevent *> clients_;
    std::jthread loop_;
};

void count_quantiles(benchmark::State &state, const std::string &name, std::vector<double> &values)
{
    state.counters[name + "p50_us"] = quantile(values, 0.5);
    state.counters[name + "p90_us"] = quantile(values, 0.9);
    state.counters[name + "p99_us"] = quantile(values, 0.99);
}

// Four seconds of records at a steady pace.
void steady(benchmark::State &state)
{
    const auto clients = static_cast<std::size_t>(state.range(0));
    const auto period = std::chrono::microseconds(1'000'000 / state.range(1));
    const auto count = static_cast<std::size_t>(state.range(1)) * 4;
    Daemon daemon;
    Libevent libevent;
    Readers ours(daemon.connect(clients));
    Readers peers(libevent.connect(clients));
    for ([[maybe_unused]] auto iteration : state) {
        auto next = Clock::now();
        for (std::size_t i = 0; i < count; ++i) {
            std::this_thread::sleep_until(next += period / 2);
            daemon.send({});
            std::this_thread::sleep_until(next += period / 2);
            libevent.send({});
        }
    }
    if (!ours.wait_for(count) || !peers.wait_for(count))
        state.SkipWithError("a record was lost");
    count_quantiles(state, "", ours.lateness);
    count_quantiles(state, "libevent_", peers.lateness);
}

template <class Server>
double burst_us(Server &server, const Readers &readers, std::size_t &sent)
{
    constexpr std::size_t burst = 16;
    const std::size_t before = readers.lateness.size();
    for (std::size_t i = 0; i < burst; ++i)
        server.send({});
    sent += burst;
    if (!readers.wait_for(sent))
        return 0;
    return *std::max_element(readers.lateness.begin() + static_cast<std::ptrdiff_t>(before),
                             readers.lateness.end());
}

// Sixteen records at once: how late the last one is at the last client.
void last_of_burst(benchmark::State &state)
{
    const auto clients = static_cast<std::size_t>(state.range(0));
    Daemon daemon;
    Libevent libevent;
    Readers ours(daemon.connect(clients));
    Readers peers(libevent.connect(clients));
    std::size_t sent = 0;
    std::size_t sent_to_peers = 0;
    std::vector<double> last;
    std::vector<double> last_of_peers;
    for ([[maybe_unused]] auto iteration : state) {
        last.push_back(burst_us(daemon, ours, sent));
        last_of_peers.push_back(burst_us(libevent, peers, sent_to_peers));
    }
    if (!ours.wait_for(sent) || !peers.wait_for(sent_to_peers))
        state.SkipWithError("a record was lost");
    count_quantiles(state, "", last);
    count_quantiles(state, "libevent_", last_of_peers);
}

BENCHMARK(steady)
    ->ArgNames({"clients", "per_second"})
    ->ArgsProduct({{1, 8, 64}, {5, 30, 200}})
    ->Iterations(1)
    ->UseRealTime();
BENCHMARK(last_of_burst)->ArgName("clients")->Arg(1)->Arg(8)->Arg(64)->Iterations(200);

} // namespace
