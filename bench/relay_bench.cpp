#include "bench/median.h"
#include "bench/quiet.h"
#include "event/event.h"
#include "ipc/network/sck_svr.h"
#include "ipc/network/socket.h"
#include "platform/sim/sim.h"
#include "tests/support/temp_dir.h"
#include "va/drivers.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <numeric>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <event2/buffer.h>
#include <sys/socket.h>
#include <unistd.h>

// What a record costs its producer for every client, beside plain copies into as many buffers and
// beside the same with libevent's; and the price of a reconfiguration that changes nothing.

namespace
{

constexpr std::uint32_t client_buffer = 65536;
constexpr std::uint32_t header_size = sizeof(std::uint32_t);

using Clock = std::chrono::steady_clock;

void cycle()
{
    static event *const never_wait = add_always_event(
        0, [](event_info *, void *) { return 0; }, nullptr);
    benchmark::DoNotOptimize(never_wait);
    event_loop(1);
}

// Returns how many bytes there were.
std::size_t read_all(int fd)
{
    static std::vector<char> sink(client_buffer);
    const ssize_t got = recv(fd, sink.data(), sink.size(), MSG_DONTWAIT);
    return got > 0 ? static_cast<std::size_t>(got) : 0;
}

// The broadcast server, drained by the loop into sockets that their clients read.
class Broadcast
{
public:
    explicit Broadcast(std::size_t clients)
    {
        const std::string path = dir_.file("od");
        sck_svr_init(&server_, path.c_str(), client_buffer);
        for (int &fd : fds_ = std::vector<int>(clients)) {
            unix_domain_socket_connect(&fd, path.c_str());
            cycle();
        }
    }
    ~Broadcast()
    {
        sck_svr_release(&server_);
        cycle();
        for (const int fd : fds_)
            close(fd);
    }
    Broadcast(const Broadcast &) = delete;
    Broadcast &operator=(const Broadcast &) = delete;

    void write(const std::vector<char> &record)
    {
        sck_svr_write(server_, record.data(), static_cast<std::uint32_t>(record.size()));
    }
    std::size_t drain()
    {
        cycle();
        return std::accumulate(fds_.begin(), fds_.end(), std::size_t{0},
                               [](std::size_t sum, int fd) { return sum + read_all(fd); });
    }

private:
    Quiet quiet_;
    TempDir dir_;
    sck_svr_t *server_ = nullptr;
    std::vector<int> fds_;
};

// Buffers that are only copied into, one frame behind the other, and drained the same way.
class PlainCopies
{
public:
    explicit PlainCopies(std::size_t clients) : clients_(clients)
    {
        for (Client &client : clients_)
            socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, client.ends);
    }
    ~PlainCopies()
    {
        for (const Client &client : clients_) {
            close(client.ends[0]);
            close(client.ends[1]);
        }
    }
    PlainCopies(const PlainCopies &) = delete;
    PlainCopies &operator=(const PlainCopies &) = delete;

    void write(const std::vector<char> &record)
    {
        const auto length = static_cast<std::uint32_t>(record.size());
        for (Client &client : clients_) {
            std::memcpy(client.buffer.data() + client.used, &length, header_size);
            std::memcpy(client.buffer.data() + client.used + header_size, record.data(), length);
            client.used += header_size + length;
        }
    }
    std::size_t drain()
    {
        std::size_t sum = 0;
        for (Client &client : clients_) {
            send(client.ends[0], client.buffer.data(), std::exchange(client.used, 0), 0);
            sum += read_all(client.ends[1]);
        }
        return sum;
    }

private:
    struct Client {
        int ends[2];
        std::size_t used = 0;
        std::vector<char> buffer = std::vector<char>(client_buffer);
    };
    std::vector<Client> clients_;
};

// libevent's buffers, filled and emptied by hand: its events take a system call of the producer.
class Libevent
{
public:
    explicit Libevent(std::size_t clients) : clients_(clients)
    {
        for (Client &client : clients_)
            socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, client.ends);
    }
    ~Libevent()
    {
        for (const Client &client : clients_) {
            evbuffer_free(client.queue);
            close(client.ends[0]);
            close(client.ends[1]);
        }
    }
    Libevent(const Libevent &) = delete;
    Libevent &operator=(const Libevent &) = delete;

    void write(const std::vector<char> &record)
    {
        const auto length = static_cast<std::uint32_t>(record.size());
        for (const Client &client : clients_) {
            evbuffer_add(client.queue, &length, header_size);
            evbuffer_add(client.queue, record.data(), record.size());
        }
    }
    std::size_t drain()
    {
        std::size_t sum = 0;
        for (const Client &client : clients_) {
            evbuffer_write(client.queue, client.ends[0]);
            sum += read_all(client.ends[1]);
        }
        return sum;
    }

private:
    struct Client {
        int ends[2];
        evbuffer *queue = evbuffer_new();
    };
    std::vector<Client> clients_;
};

// Seconds that the producer's side of a burst takes; it fits into the buffers, which are emptied.
template <class Clients>
double produce(benchmark::State &state, Clients &clients, const std::vector<char> &record,
               std::size_t burst)
{
    const auto start = Clock::now();
    for (std::size_t i = 0; i < burst; ++i)
        clients.write(record);
    const std::chrono::duration<double> time = Clock::now() - start;
    const std::size_t expected =
        burst * static_cast<std::size_t>(state.range(1)) * (header_size + record.size());
    std::size_t drained = 0;
    while (const std::size_t some = drained < expected ? clients.drain() : 0)
        drained += some;
    if (drained != expected)
        state.SkipWithError("a record was dropped");
    return time.count();
}

// The three take turns, so that they see the same machine. The counters are nanoseconds per record
// and client.
void broadcast(benchmark::State &state)
{
    const std::vector<char> record(static_cast<std::size_t>(state.range(0)), 0x5a);
    const auto count = static_cast<std::size_t>(state.range(1));
    const std::size_t burst = std::min(static_cast<std::size_t>(state.range(2)),
                                       (client_buffer - 1) / (header_size + record.size()));
    Broadcast server(count);
    PlainCopies copies(count);
    Libevent libevent(count);
    std::vector<double> ours;
    std::vector<double> plain;
    std::vector<double> peer;
    for ([[maybe_unused]] auto iteration : state) {
        ours.push_back(produce(state, server, record, burst));
        plain.push_back(produce(state, copies, record, burst));
        peer.push_back(produce(state, libevent, record, burst));
        state.SetIterationTime(ours.back());
    }
    const double to_ns = 1e9 / static_cast<double>(burst * count);
    state.counters["ns"] = median(ours) * to_ns;
    state.counters["plain_ns"] = median(plain) * to_ns;
    state.counters["libevent_ns"] = median(peer) * to_ns;
    state.counters["ours/libevent"] = median(ours) / median(peer);
}

void unchanged_reconfiguration(benchmark::State &state)
{
    const TempDir dir;
    std::ofstream(dir.file("store")) << "Properties.ImageSource.Sensor=imx122\n";
    setenv("NVRAM_FILE", dir.file("store").c_str(), 1);
    sim_reset();
    VaContext context{};
    gm_bOdEna = 1;
    va_od_getConf(&context);
    va_ta_getConf(&context);
    const std::size_t calls = sim_calls().size();
    for ([[maybe_unused]] auto iteration : state) {
        va_od_updateConfig(&context);
        va_ta_updateConfig(&context);
    }
    if (sim_calls().size() != calls)
        state.SkipWithError("an unchanged store reached the library");
}

void bytes_and_clients(benchmark::internal::Benchmark *benchmark)
{
    benchmark->ArgNames({"bytes", "clients", "burst"})->UseManualTime();
    for (const std::int64_t bytes : {16, 120, 4000, 40000}) {
        for (const std::int64_t clients : {8, 64}) {
            for (const std::int64_t burst : {1, 16})
                benchmark->Args({bytes, clients, burst});
        }
    }
}

BENCHMARK(broadcast)->Apply(bytes_and_clients);
BENCHMARK(unchanged_reconfiguration)->Unit(benchmark::kMicrosecond);

} // namespace
