// usage: fleet_bench publish PORT FIRST COUNT RATE SECONDS
//        fleet_bench subscribe PORT COUNT
// Cameras on one MQTT broker, simulated. `publish` is COUNT of them, each a publisher as va_mqtt
// has one, fed with RATE records a second of eight objects and with a line that is crossed every
// ten seconds; it begins when a line, or the end, comes on standard input. `subscribe` reads all
// that they tell, says "here" when COUNT are, and prints its figures at SIGTERM. A process has 250
// publishers at most: the library cannot wait for descriptors from 1024 on.

#include "mqtt/publisher.h"
#include "records/records.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <thread>
#include <vector>

#include <mosquitto.h>
#include <sys/resource.h>

namespace
{

using namespace va;
using mqtt::Publisher, mqtt::Settings;

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

constexpr std::uint32_t objects = 8;
constexpr double between_crossings = 10; // seconds
const Clock::time_point start = Clock::now();

std::uint32_t clock_us()
{
    const auto now = Clock::now().time_since_epoch();
    return static_cast<std::uint32_t>(std::chrono::duration_cast<microseconds>(now).count());
}

Moment now()
{
    return {std::chrono::system_clock::now(),
            std::chrono::duration_cast<Elapsed>(Clock::now() - start)};
}

class Camera
{
public:
    Camera(int port, int number) : publisher_(settings_of(port, number), Source())
    {
        const std::string connected = "connected";
        for (const Stream stream : STREAMS)
            publisher_.connection({stream, now(), true, connected});
        publisher_.status(now(), {.answer = DaemonStatus::Answer::Answered,
                                  .lines = {{"va.sensor", "imx122 1920x1080 30/s"},
                                            {"filter.0.name", "CrossLine.C0"},
                                            {"filter.0.event", "1"},
                                            {"filter.0.bit", "0"}}});
    }

    // The time in which it is made is the first object's place: lower half x, upper half y.
    void see()
    {
        const std::uint32_t time = clock_us();
        SimObjectEntry entries[objects] = {};
        for (std::uint32_t i = 0; i < objects; ++i)
            entries[i] = {i, SimObjectKind::Moving, 0, 0, 100, 100, 0, 0, result_, 0};
        entries[0].x = static_cast<std::int32_t>(time & 0xffff);
        entries[0].y = static_cast<std::int32_t>(time >> 16);
        ++result_;
        print("od", entries);
        publisher_.tick(now());
    }

    void cross()
    {
        const VmfRecord record = {{0, 1, 0, 0}};
        print("vmf", record);
    }

    void finish() { publisher_.finish(now()); }

private:
    static Settings settings_of(int port, int number)
    {
        Settings settings;
        settings.hosts = {"127.0.0.1"};
        settings.port = port;
        settings.names.prefix = "cameras/camera" + std::to_string(number);
        settings.client_id = settings.names.prefix;
        settings.rate = 1000;
        return settings;
    }

    template <class Payload>
    void print(const char *stream, const Payload &payload)
    {
        const auto *bytes = reinterpret_cast<const std::uint8_t *>(&payload);
        const Moment moment = now();
        publisher_.record({*find_stream(stream), moment.time, moment.at, {bytes, sizeof payload}});
    }

    Publisher publisher_;
    std::uint32_t result_ = 0;
};

double cpu_seconds()
{
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Each camera has a turn in each interval, and its crossings in a turn of its own.
int publish(int port, int first, int count, double rate, double length)
{
    std::vector<std::unique_ptr<Camera>> cameras;
    for (int i = 0; i < count; ++i)
        cameras.push_back(std::make_unique<Camera>(port, first + i));
    std::getchar();
    const double used = cpu_seconds();
    const long turns = std::lround(rate * length);
    const long crossing_turns = std::lround(rate * between_crossings);
    const std::chrono::duration<double> step(1 / rate / count);
    const Clock::time_point begin = Clock::now();
    long crossings = 0;
    for (long turn = 0; turn < turns * count; ++turn) {
        std::this_thread::sleep_until(begin + turn * step);
        Camera &camera = *cameras[static_cast<std::size_t>(turn % count)];
        if ((turn / count + turn % count) % crossing_turns == 0) {
            camera.cross();
            ++crossings;
        }
        camera.see();
    }
    const double all = cpu_seconds() - used;
    for (auto &camera : cameras)
        camera->finish();
    std::printf("%ld %ld %.3f\n", turns * count, crossings, all);
    return EXIT_SUCCESS;
}

struct Reader {
    void take(const mosquitto_message &message)
    {
        const std::string_view topic = message.topic;
        const std::string payload(static_cast<const char *>(message.payload),
                                  static_cast<std::size_t>(message.payloadlen));
        const auto number = [&](const char *name) {
            const std::size_t at = payload.find(name);
            return static_cast<std::uint32_t>(std::atol(payload.c_str() + at + std::strlen(name)));
        };
        if (topic.ends_with("/od")) {
            const std::uint32_t made = number("\"@left\":") | number("\"@top\":") << 16;
            delays.push_back(clock_us() - made);
        } else if (topic.find("/LineDetector/") != std::string_view::npos) {
            ++crossings;
        } else if (topic.ends_with("/va/available") &&
                   payload.find(R"("State":"online")") != payload.npos && ++here == count) {
            std::puts("here");
        }
    }

    int count;
    int here = 0;
    long crossings = 0;
    std::vector<std::uint32_t> delays = {}; // of frames, microseconds
};

double milliseconds_at(const std::vector<std::uint32_t> &delays, double part)
{
    return delays.empty()
               ? 0
               : delays[static_cast<std::size_t>(part * static_cast<double>(delays.size() - 1))] /
                     1000.0;
}

int subscribe(int port, int count)
{
    Reader reader{count};
    mosquitto_lib_init();
    mosquitto *const handle = mosquitto_new(nullptr, true, &reader);
    mosquitto_message_callback_set(handle,
                                   [](mosquitto *, void *to, const mosquitto_message *message) {
                                       static_cast<Reader *>(to)->take(*message);
                                   });
    mosquitto_connect_callback_set(handle, [](mosquitto *of, void *, int) {
        mosquitto_subscribe(of, nullptr, "cameras/#", 1);
    });
    static std::atomic<bool> stop{false};
    std::signal(SIGTERM, [](int) { stop = true; });
    int result = mosquitto_connect(handle, "127.0.0.1", port, 60);
    while (result == MOSQ_ERR_SUCCESS && !stop)
        result = mosquitto_loop(handle, 100, 1);
    std::ranges::sort(reader.delays);
    std::printf("%zu %ld %.2f %.2f %.2f\n", reader.delays.size(), reader.crossings,
                milliseconds_at(reader.delays, 0.5), milliseconds_at(reader.delays, 0.99),
                milliseconds_at(reader.delays, 1));
    return stop ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char **argv)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const std::string_view role = argc > 1 ? argv[1] : "";
    if (role == "publish" && argc == 7)
        return publish(std::atoi(argv[2]), std::atoi(argv[3]), std::atoi(argv[4]),
                       std::atof(argv[5]), std::atof(argv[6]));
    if (role == "subscribe" && argc == 4)
        return subscribe(std::atoi(argv[2]), std::atoi(argv[3]));
    std::fputs("usage: fleet_bench publish PORT FIRST COUNT RATE SECONDS\n"
               "       fleet_bench subscribe PORT COUNT\n",
               stderr);
    return 2;
}
