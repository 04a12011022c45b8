#include "event/event.h"
#include "ipc/network/sck_svr.h"
#include "ipc/network/socket.h"
#include "platform/sim/sim.h"
#include "tests/support/temp_dir.h"
#include "va/options.h"
#include "va/va_od.h"
#include "va/va_ta.h"

#include <chrono>
#include <cstring>
#include <fstream>
#include <vector>

#include <benchmark/benchmark.h>
#include <unistd.h>

// The road of an object-detection result, from the library to every client's queue, and the price
// of a reconfiguration that changes nothing.

namespace
{

constexpr std::uint32_t client_buffer = 65536;

using Clock = std::chrono::steady_clock;

void cycle()
{
    add_always_event(
        EVENT_ONESHOT, [](event_info *, void *) { return 0; }, nullptr);
    event_loop(1);
}

class Stream
{
public:
    explicit Stream(std::size_t clients)
    {
        const std::string path = dir_.file("od");
        sck_svr_init(&server, path.c_str(), client_buffer);
        for (std::size_t i = 0; i < clients; ++i) {
            int fd = -1;
            unix_domain_socket_connect(&fd, path.c_str());
            clients_.push_back(fd);
            cycle();
        }
    }
    ~Stream()
    {
        sck_svr_release(&server);
        cycle();
        for (const int fd : clients_)
            close(fd);
    }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    // Empties the queues without a socket call, where the next record continues.
    void forget_queued() const
    {
        for (sck_clt_t *client = server->clients; client; client = client->next) {
            client->send.count = 0;
            client->send.readPos = client->send.writePos;
        }
    }

    sck_svr_t *server = nullptr;

private:
    TempDir dir_;
    std::vector<int> clients_;
};

void report(benchmark::State &state, std::size_t bytes)
{
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

// get_data of the stand-in, then the relay into every client's queue.
void result_to_queues(benchmark::State &state)
{
    const auto objects = static_cast<std::size_t>(state.range(0));
    const auto clients = static_cast<std::size_t>(state.range(1));
    sim_reset();
    ne3_val_init();
    ne3_val_open();
    const ne3_val_od_open_prm prm{4, 1, 0, 1};
    ne3_val_od_start(ne3_val_od_open_ex(&prm, 1));
    const Stream stream(clients);
    VaContext context{};
    context.odServer = stream.server;
    const std::vector<unsigned char> entries(objects * NE3_VAL_OD_OBJECT_SIZE, 0x5a);
    ne3_val_od_result result{};
    for ([[maybe_unused]] auto iteration : state) {
        sim_push_od(entries, static_cast<int>(objects), 0);
        const auto start = Clock::now();
        ne3_val_od_get_data(1, &result);
        va_od_processData(&context, &result);
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        stream.forget_queued();
    }
    report(state, entries.size() * clients);
}

// The same bytes into as many buffers, and nothing else.
void plain_copies(benchmark::State &state)
{
    const auto clients = static_cast<std::size_t>(state.range(1));
    const std::vector<unsigned char> entries(
        static_cast<std::size_t>(state.range(0)) * NE3_VAL_OD_OBJECT_SIZE, 0x5a);
    std::vector<std::vector<unsigned char>> buffers(clients,
                                                    std::vector<unsigned char>(client_buffer));
    for ([[maybe_unused]] auto iteration : state) {
        const auto start = Clock::now();
        for (std::vector<unsigned char> &buffer : buffers) {
            std::memcpy(buffer.data(), entries.data(), entries.size());
            benchmark::ClobberMemory();
        }
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
    report(state, entries.size() * clients);
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

const std::vector<std::vector<std::int64_t>> sizes{{1, 50, 1000}, {1, 8, 32}};
BENCHMARK(result_to_queues)->ArgsProduct(sizes)->ArgNames({"objects", "clients"})->UseManualTime();
BENCHMARK(plain_copies)->ArgsProduct(sizes)->ArgNames({"objects", "clients"})->UseManualTime();
BENCHMARK(unchanged_reconfiguration)->Unit(benchmark::kMicrosecond);

} // namespace
