// usage: fleet_bench publish PORT CAFILE FIRST COUNT RATE CROSSING SECONDS
//        fleet_bench subscribe PORT CAFILE COUNT WINDOW
// Cameras on one MQTT broker, simulated. `publish` is COUNT of them, each a publisher as va_mqtt
// has one, fed with RATE records a second of eight objects and with a line that is crossed every
// CROSSING seconds; it begins when a line, or the end, comes on standard input. `subscribe` reads
// all that they tell, says "here" when COUNT are, and prints its figures at SIGTERM; it lets so
// many messages be on their way to it (0: as many as the broker likes). An empty CAFILE: no TLS. A
// process has 250 publishers at most: the library cannot wait for descriptors from 1024 on.

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
#include <mqtt_protocol.h>
#include <sys/resource.h>

namespace
{

using namespace va;
using mqtt::Publisher, mqtt::Settings;

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

constexpr std::uint32_t objects = 8;
const Clock::time_point start = Clock::now();

struct Server {
    int port;
    std::string cafile;
};

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
    Camera(const Server &server, int number) : publisher_(settings_of(server, number), Source())
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
    static Settings settings_of(const Server &server, int number)
    {
        Settings settings;
        settings.hosts = {"127.0.0.1"};
        settings.port = server.port;
        settings.ca_file = server.cafile;
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
int publish(const Server &server, int first, int count, double rate, double crossing, double length)
{
    std::vector<std::unique_ptr<Camera>> cameras;
    for (int i = 0; i < count; ++i)
        cameras.push_back(std::make_unique<Camera>(server, first + i));
    std::getchar();
    const double used = cpu_seconds();
    const long turns = std::lround(rate * length);
    const long crossing_turns = std::max(1L, std::lround(rate * crossing));
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
            event_delays.push_back(since(payload));
        } else if (topic.ends_with("/va/available") &&
                   payload.find(R"("State":"online")") != payload.npos && ++here == count) {
            std::puts("here");
        }
    }

    // Since the event's "UtcTime":"2026-11-26T06:42:23.123456Z".
    static std::uint32_t since(const std::string &payload)
    {
        constexpr std::string_view name = "\"UtcTime\":\"";
        std::tm time = {};
        double seconds = 0;
        const std::size_t at = payload.find(name);
        if (at == payload.npos ||
            std::sscanf(payload.c_str() + at + name.size(), "%d-%d-%dT%d:%d:%lf", &time.tm_year,
                        &time.tm_mon, &time.tm_mday, &time.tm_hour, &time.tm_min, &seconds) != 6)
            return 0;
        time.tm_year -= 1900;
        --time.tm_mon;
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        const double then = static_cast<double>(timegm(&time)) + seconds;
        return static_cast<std::uint32_t>(
            std::max(0.0, std::chrono::duration<double>(now).count() - then) * 1e6);
    }

    int count;
    int here = 0;
    std::vector<std::uint32_t> delays = {}; // of frames, microseconds
    std::vector<std::uint32_t> event_delays = {};
};

// Median, 99 of 100, the last.
void print_delays(std::vector<std::uint32_t> &delays)
{
    std::ranges::sort(delays);
    const auto at = [&](double part) {
        const double place = part * static_cast<double>(delays.size() - 1);
        return delays.empty() ? 0 : delays[static_cast<std::size_t>(place)] / 1000.0;
    };
    std::printf("%zu %.2f %.2f %.2f ", delays.size(), at(0.5), at(0.99), at(1));
}

int subscribe(const Server &server, int count, std::uint16_t window)
{
    Reader reader{count};
    mosquitto_lib_init();
    mosquitto *const handle = mosquitto_new(nullptr, true, &reader);
    mosquitto_int_option(handle, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(handle, MOSQ_OPT_TCP_NODELAY, 1);
    if (!server.cafile.empty())
        mosquitto_tls_set(handle, server.cafile.c_str(), nullptr, nullptr, nullptr, nullptr);
    mosquitto_message_callback_set(handle,
                                   [](mosquitto *, void *to, const mosquitto_message *message) {
                                       static_cast<Reader *>(to)->take(*message);
                                   });
    mosquitto_connect_callback_set(handle, [](mosquitto *of, void *, int) {
        mosquitto_subscribe(of, nullptr, "cameras/#", 1);
    });
    static std::atomic<bool> stop{false};
    std::signal(SIGTERM, [](int) { stop = true; });
    mosquitto_property *properties = nullptr;
    if (window > 0)
        mosquitto_property_add_int16(&properties, MQTT_PROP_RECEIVE_MAXIMUM, window);
    int result =
        mosquitto_connect_bind_v5(handle, "127.0.0.1", server.port, 60, nullptr, properties);
    while (result == MOSQ_ERR_SUCCESS && !stop)
        result = mosquitto_loop(handle, 100, 1);
    print_delays(reader.delays);
    print_delays(reader.event_delays);
    std::puts("");
    return stop ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char **argv)
{
    std::signal(SIGPIPE, SIG_IGN); // of a broker that was killed
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const std::string_view role = argc > 1 ? argv[1] : "";
    const Server server = argc > 3 ? Server{std::atoi(argv[2]), argv[3]} : Server{};
    if (role == "publish" && argc == 9)
        return publish(server, std::atoi(argv[4]), std::atoi(argv[5]), std::atof(argv[6]),
                       std::atof(argv[7]), std::atof(argv[8]));
    if (role == "subscribe" && argc == 6)
        return subscribe(server, std::atoi(argv[4]),
                         static_cast<std::uint16_t>(std::atoi(argv[5])));
    std::fputs("usage: fleet_bench publish PORT CAFILE FIRST COUNT RATE CROSSING SECONDS\n"
               "       fleet_bench subscribe PORT CAFILE COUNT WINDOW\n",
               stderr);
    return 2;
}
