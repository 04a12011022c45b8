#include "tests/support/capture.h"
#include "tests/support/daemon.h"
#include "tests/support/store_file.h"
#include "tests/support/wait.h"
#include "va/health.h"
#include "va/log.h"
#include "va/run_dir.h"
#include "va/va.h"

#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>

using std::string;
using std::chrono::milliseconds, std::chrono::steady_clock;

namespace
{

bool wait_for_bytes = false; // before they are counted
string log_socket;           // in the system log's place
std::time_t set_back = 0;    // seconds by which the clock was

sockaddr_un address_of(const string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

int connect_to(int fd, const sockaddr *address, socklen_t length)
{
    return static_cast<int>(syscall(SYS_connect, fd, address, length));
}

} // namespace

// These three stand in front of the C library's.
extern "C" int clock_gettime(clockid_t clock, timespec *time) noexcept
{
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    time->tv_sec -= clock == CLOCK_REALTIME ? set_back : 0;
    return result;
}

extern "C" int connect(int fd, const sockaddr *address, socklen_t length)
{
    const auto *const path = reinterpret_cast<const sockaddr_un *>(address)->sun_path;
    if (log_socket.empty() || std::strcmp(path, _PATH_LOG) != 0)
        return connect_to(fd, address, length);
    const sockaddr_un other = address_of(log_socket);
    return connect_to(fd, reinterpret_cast<const sockaddr *>(&other), sizeof other);
}

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    pollfd readable{fd, POLLIN, 0};
    if (request == FIONREAD && wait_for_bytes) { // and until nobody has the other end
        poll(&readable, 1, 20'000);
        std::this_thread::sleep_for(milliseconds(20));
    }
    return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}

namespace
{

const string runs = "STATUS=Analytics run.\n";
constexpr int interval_ms = 200; // of the watchdog

// Receives what the daemons started meanwhile have to say.
class Supervisor
{
public:
    explicit Supervisor(const string &name) : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address = address_of(name);
        if (name.starts_with('@'))
            address.sun_path[0] = '\0';
        const auto length = offsetof(sockaddr_un, sun_path) + name.size();
        bound_ = bind(socket_.get(), reinterpret_cast<sockaddr *>(&address),
                      static_cast<socklen_t>(length)) == 0;
        setenv("NOTIFY_SOCKET", name.c_str(), 1);
        setenv("WATCHDOG_USEC", std::to_string(interval_ms * 1000).c_str(), 1);
    }
    ~Supervisor()
    {
        for (const char *variable : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
            unsetenv(variable);
    }

    bool is_bound() const { return bound_; }

    // One datagram; empty when none comes in time.
    string next(int bound_ms = 20'000) const
    {
        char text[1024];
        pollfd readable{socket_.get(), POLLIN, 0};
        const ssize_t length =
            poll(&readable, 1, bound_ms) > 0 ? recv(socket_.get(), text, sizeof text, 0) : 0;
        return {text, static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
    }

    // Whether such a datagram comes; those before it are dropped.
    bool hears(const string &text) const
    {
        return wait_until([&] { return next().find(text) != string::npos; });
    }

    // Whether nothing more comes in the place of several signs of life.
    bool hears_nothing() const { return next(5 * interval_ms).empty(); }

private:
    Fd socket_;
    bool bound_;
};

using Status = std::map<string, string>;

bool once(const string &part, const string &text)
{
    return text.find(part) != string::npos && text.find(part) == text.rfind(part);
}

struct HealthTest : testing::Test {
    Status read_status() const
    {
        Status status;
        std::istringstream text(files.read("run/status"));
        for (string line; std::getline(text, line);) {
            const std::size_t colon = line.find(": ");
            status[line.substr(0, colon)] = line.substr(colon + 2);
        }
        return status;
    }

    void request(const char *lines) const { pipe_write_str(files.file("run/ctrl").c_str(), lines); }

    // A file that was made later; empty when none is made in time.
    Status ask()
    {
        const string before = read_status()["va.writes"];
        request("status\n");
        return wait_until([&] { return read_status()["va.writes"] != before; }) ? read_status()
                                                                                : Status();
    }

    // Whether the status comes to say so.
    bool says(const string &key, const string &value)
    {
        return wait_until([&] { return ask()[key] == value; });
    }

    DaemonFiles files;
};

TEST_F(HealthTest, TellsTheSupervisorOfEachStep)
{
    const string names[] = {files.file("notify"), "@va-test-" + std::to_string(getpid())};
    for (const string &name : names) {
        SCOPED_TRACE(name);
        const Supervisor supervisor(name);
        ASSERT_TRUE(supervisor.is_bound());
        Daemon daemon(files, {"-t"});
        const string first = supervisor.next();
        EXPECT_TRUE(first.starts_with("READY=1\nSTATUS=")) << first;
        EXPECT_TRUE(std::filesystem::exists(files.file("run/ctrl")));
        EXPECT_TRUE(first.find(runs) != string::npos || supervisor.hears(runs));
        EXPECT_TRUE(wait_until([&] { // two in an interval
            return supervisor.hears("WATCHDOG=1\n") &&
                   !supervisor.next(interval_ms * 3 / 4).empty();
        }));
        EXPECT_TRUE(daemon.stop());
        EXPECT_TRUE(supervisor.hears("STOPPING=1\n"));
        EXPECT_EQ(string::npos, daemon.log().find("have ended")); // told to
        EXPECT_TRUE(supervisor.hears_nothing());
    }
}

TEST_F(HealthTest, GivesNoSignOfLifeWithoutAnalytics)
{
    const Supervisor supervisor(files.file("notify"));
    files.write("scene", "fail ne3_val_ta_get_data 20 0x1f\n");
    const auto start = steady_clock::now();
    Daemon daemon(files, {"-t"});
    EXPECT_TRUE(supervisor.hears(
        "STATUS=Runs without analytics: ta: ne3_val_ta_get_data failed, code 1F\n"));
    EXPECT_LE(19 * milliseconds(100), steady_clock::now() - start); // it rests between reads
    EXPECT_TRUE(supervisor.hears_nothing());
    EXPECT_TRUE(daemon.stop());
}

TEST_F(HealthTest, WatchesForNobodyElse)
{
    const Supervisor supervisor(files.file("notify"));
    setenv("WATCHDOG_PID", "1", 1);
    Daemon daemon(files, {"-t"});
    EXPECT_TRUE(supervisor.hears(runs));
    EXPECT_TRUE(supervisor.hears_nothing());
    EXPECT_TRUE(daemon.stop());
    setenv("NOTIFY_SOCKET", files.file("later").c_str(), 1);
    Daemon early(files, {"-t"}, "early");
    EXPECT_TRUE(early.wait_for_log("VA: Can't notify the supervisor: No such file or directory."));
    EXPECT_TRUE(Supervisor(files.file("later")).hears("READY=1\n"));
    EXPECT_TRUE(early.stop());
}

TEST_F(HealthTest, TellsItsStatusWhenAsked)
{
    files.write("scene", "every 50 ta 1 0x20 3 0xffffffff\n");
    files.store("CameraTampering.T0.gcAreaRate=31\nFaceDetection.F0.Left=5\33\n");
    std::filesystem::create_symlink("../store", files.file("run/status"));
    mkfifo(files.file("run/ctrl").c_str(), 0600);
    Program writer("sh", files.path(), {"-c", "echo; echo stat >run/ctrl"}, "writer");
    EXPECT_TRUE(writer.wait_for_output("\n"));
    setenv("TZ", "far-12", 1);
    Daemon daemon(files, {"-tf"});
    unsetenv("TZ");
    Client client(files.file("run/ta"));
    for (int count = 0; count < 3; ++count)
        ASSERT_TRUE(client.next());
    EXPECT_FALSE(std::filesystem::exists(files.file("run/status"))); // nobody has asked
    const string fresh = "run/status." + std::to_string(daemon.pid()) + ".new";
    std::filesystem::create_symlink("../store", files.file(fresh));
    EXPECT_TRUE(writer.wait_for_exit()); // was waiting for a reader
    Status status = ask();
    const auto expect = [&](const string &key, const string &value) {
        EXPECT_EQ(value, status[key]) << key;
    };
    expect("va.process", std::to_string(daemon.pid()));
    std::tm written{};
    strptime(status["va.written"].c_str(), "%FT%TZ", &written);
    EXPECT_GT(3600, std::abs(timegm(&written) - std::time(nullptr)));
    expect("va.run_dir", "");
    expect("analytics.state", "run");
    expect("module.od.state", "off");
    expect("module.ta.state", "runs");
    expect("module.fd.last_result", ""); // none yet
    expect("stream.ta.clients", "1");
    expect("stream.ta.client.1.process", std::to_string(getpid()));
    expect("stream.ta.client.1.refused", "0");
    const int records = std::stoi(status["stream.ta.client.1.records"]);
    EXPECT_LE(3, records);
    expect("stream.ta.client.1.bytes", std::to_string(16 * records));
    EXPECT_LE(records, std::stoi(status["stream.ta.records"]));
    EXPECT_LT(0, std::stoi(status["stream.ta.longest_us"]));
    EXPECT_TRUE(status.contains("module.ta.last_result") && !status.contains("stream.od.clients"));
    expect("control.unknown", "1");
    expect("control.last_unknown", "stat");
    expect("settings.reloads", "0");
    expect("setting.CameraTampering.T0.gcAreaRate", "31");
    expect("setting.VideoAnalytics.DIS.Mf_cutf", ""); // of a module that is off
    const string no_window = "5? (no window: four places of 0 to 9999 that enclose an area)";
    expect("left_out.FaceDetection.F0.Left", no_window);
    EXPECT_TRUE(is_regular_file(std::filesystem::symlink_status(files.file("run/status"))));
    EXPECT_NE(string::npos, files.read("store").find("imx122")); // no link was followed

    const Client late(files.file("run/ta"));
    files.store("CameraTampering.T0.gcAreaRate=32\n");
    daemon.signal(SIGHUP);
    EXPECT_TRUE(says("settings.reloads", "1"));
    status = ask();
    expect("stream.ta.clients", "2");
    EXPECT_NE(status["stream.ta.client.1.records"], status["stream.ta.client.2.records"]);
    expect("settings.reloads", "1"); // once for each request
    expect("setting.CameraTampering.T0.gcAreaRate", "32");
    expect("left_out.FaceDetection.F0.Left", no_window); // is not read again

    // Many requests bring few files, the last of which is later than they are.
    const auto start = steady_clock::now();
    for (int count = 0; count < 100; ++count)
        request("status\n");
    request("last\nstatus\n");
    EXPECT_TRUE(wait_until([&] { return read_status()["control.last_unknown"] == "last"; }));
    const int files_made = std::stoi(read_status()["va.writes"]) - std::stoi(status["va.writes"]);
    EXPECT_GE(2 + (steady_clock::now() - start) / milliseconds(250), files_made);

    std::filesystem::rename(files.file("run/ta"), files.file("ta"));
    EXPECT_TRUE(says("va.run_dir", "run/ta is gone"));
    std::filesystem::rename(files.file("ta"), files.file("run/ta"));
    EXPECT_TRUE(wait_until([&] { return !ask().contains("va.run_dir"); }));
    std::filesystem::rename(files.file("store"), files.file("run/ta"));
    EXPECT_TRUE(says("va.run_dir", "run/ta is another one"));
    std::filesystem::remove(files.file("run/pid"));
    EXPECT_TRUE(says("va.run_dir", "run/pid is gone"));
    for (const string fault : {"gone", "another one"}) // once each, and no second one meanwhile
        EXPECT_TRUE(once(fault + ": clients do not find this daemon any more", daemon.log()));
    EXPECT_TRUE(daemon.stop());
    EXPECT_FALSE(std::filesystem::exists(files.file("run/status")));
}

TEST_F(HealthTest, NamesTheSettingsThatAreLeftOut)
{
    string store = window("VMDWindow.NonDetect.V1.", 0, 10000, 0, 5) +
                   window("ObjectDetection.O0.", 1, 2, 3, 4) + // a fourth filter
                   window("FaceDetection.F1.", 5, 5, 0, 9) +
                   window("VideoAnalytics.OD.VmfParam.NdArea0.", 0, 0, 0, 0) +
                   "VMDWindow.Response=9\nVMDWindow.MaxDetectionSize=4000x1\n"
                   "FaceDetection.MinDetectionSize=961\nObjectDetection.SODetectionTime=4\n"
                   "VideoAnalytics.OD.VmfParam.ComboFilter.FilterID=0,3\n";
    for (const string line : {"CrossLine.C0.", "CrossLine.C1.", "CrossLine.C2."})
        store += lines(line, {"StartX=1", "StartY=1", "EndX=2", "EndY=2"});
    files.store(store);
    Daemon daemon(files, {"-of"});
    EXPECT_TRUE(daemon.wait_for_output("init fd."));
    const std::map<string, string> wanted = {
        // why the first key of each record is
        {"VMDWindow.NonDetect.V1.Bottom", "no window"},
        {"ObjectDetection.O0.Bottom", "no filter left"},
        {"FaceDetection.F1.Bottom", "no window"},
        {"VideoAnalytics.OD.VmfParam.NdArea0.Bottom", "no window"},
        {"VMDWindow.Response", "out of its range, 1 to 6"},
        {"VideoAnalytics.OD.Resolution", "set together with"},
        {"VMDWindow.MaxDetectionSize", "threshold or sizes do not fit"},
        {"FaceDetection.MinDetectionSize", "no pair"},
        {"ObjectDetection.SODetectionTime", "out of its range"},
        {"VideoAnalytics.OD.VmfParam.ComboFilter.FilterID", "no chain"},
    };
    // The settings of faces are judged last.
    EXPECT_TRUE(
        wait_until([&] { return ask().contains("left_out.FaceDetection.MinDetectionSize"); }));
    Status status = ask();
    for (const auto &[key, why] : wanted) {
        EXPECT_NE(string::npos, status["left_out." + key].find("(" + why)) << key;
        EXPECT_FALSE(status.contains("setting." + key)) << key;
    }
    EXPECT_EQ("2", status["setting.CrossLine.C2.EndY"]);
    EXPECT_EQ("CrossLine.C2/1/2", status["filter.2.name"] + '/' + status["filter.2.event"] + '/' +
                                      status["filter.2.bit"]);
    EXPECT_FALSE(status.contains("left_out.ObjectDetection.O1.SlowSpeed")); // a default
    files.reconfigure("");
    EXPECT_TRUE(says("settings.reloads", "1"));
    status = ask();
    EXPECT_FALSE(status.contains("filter.0.name"));
    for (const auto &[key, why] : wanted) // but for faces', which are read at start alone
        EXPECT_EQ(key.starts_with("Face"), status.contains("left_out." + key)) << key;
    EXPECT_TRUE(daemon.stop());
}

TEST_F(HealthTest, TellsWhatFailed)
{
    const struct {
        string scene;
        Status status;
    } cases[] = {
        {"fail ne3_val_fd_start 1 5\n",
         {{"analytics.state", "ended"},
          {"module.fd.why", "did not start"},
          {"module.od.state", "stopped"},
          {"module.fd.state", "failed"},
          {"module.ta.state", "off"}}},
        {"fail ne3_val_ta_get_data 2 0x81e030c8\n",
         {{"analytics.state", "ended"},
          {"analytics.why", "a read was cancelled, though nobody has asked va to stop"},
          {"module.ta.state", "stopped"},
          {"module.dis.state", "stopped"}}},
        {"fail ne3_val_od_set_ctrl 1 5\n",
         {{"analytics.state", "run"}, {"module.od.settings", "refused by the chip"}}},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.scene);
        files.write("scene", test.scene);
        Daemon daemon(files, {"-oftd"});
        EXPECT_TRUE(daemon.wait_for_output("init od."));
        EXPECT_TRUE(says("analytics.state", test.status.at("analytics.state")));
        Status status = ask();
        for (const auto &[key, value] : test.status)
            EXPECT_EQ(value, status[key]) << key;
        EXPECT_TRUE(status["analytics.why"].empty() ||
                    daemon.wait_for_log("VA: Analytics have ended: " + status["analytics.why"]));
        if (status.contains("module.od.settings")) {
            files.reconfigure("VMDWindow.Sensitivity=26\n");
            EXPECT_TRUE(says("settings.reloads", "1") && !ask().contains("module.od.settings"));
        }
        EXPECT_TRUE(daemon.stop());
    }
}

TEST_F(HealthTest, TellsThatItHangs)
{
    const Supervisor supervisor(files.file("notify"));
    files.write("scene", "hang ne3_val_od_start 1 5000\nhang ne3_val_od_set_ctrl 2 5000\n");
    Daemon daemon(files, {"-o"});
    EXPECT_TRUE(daemon.wait_for_output("init od."));
    EXPECT_TRUE(says("analytics.state", "hang")); // in opening a module
    EXPECT_TRUE(says("analytics.state", "run"));
    files.reconfigure("VMDWindow.Sensitivity=26\n");
    EXPECT_TRUE(supervisor.hears("STATUS=Analytics hang"));
    EXPECT_TRUE(supervisor.hears_nothing());
    EXPECT_EQ("0", ask()["settings.reloads"]);
    EXPECT_TRUE(says("analytics.state", "run"));
    EXPECT_TRUE(supervisor.hears("WATCHDOG=1\n"));
    EXPECT_TRUE(daemon.stop());
}

TEST(Stamp, AgesWhateverTheClockIsSetTo)
{
    va::Stamp stamp;
    stamp.set();
    set_back = 3600;
    EXPECT_TRUE(wait_until([&] { return stamp.age() > va::Stamp::Age(0); }));
    set_back = 0;
}

// It reads for a fifth of the time at most, and forgets no request over that.
TEST_F(HealthTest, ReadsLaterWhatIsToBeReadTooSoon)
{
    files.write("scene", "hang ne3_val_od_set_ctrl 2 300\n");
    Daemon daemon(files, {"-o"});
    EXPECT_TRUE(daemon.wait_for_output("init od."));
    const auto start = steady_clock::now();
    for (const string count : {"1", "2"}) {
        files.reconfigure("VMDWindow.Sensitivity=2" + count + "\n");
        EXPECT_TRUE(says("settings.reloads", count));
    }
    EXPECT_LE(5 * milliseconds(300), steady_clock::now() - start);
    EXPECT_TRUE(daemon.stop());
}

TEST_F(HealthTest, SaysWhyItDidNotStart)
{
    const Supervisor supervisor(files.file("notify"));
    std::filesystem::remove(files.file("firmware/vanafw.bin"));
    Daemon daemon(files, {"-t"});
    const string why = "firmware/vanafw.bin: No such file or directory";
    EXPECT_EQ("STATUS=Did not start: " + why + ".", supervisor.next()); // and no READY before
    EXPECT_TRUE(daemon.wait_for_exit());
    EXPECT_TRUE(daemon.log().ends_with("VA: va_init: fail.\n" + why + "\nVA: Application quit.\n"));
    EXPECT_TRUE(once(why, daemon.log()));
}

// What nobody reads is lost, and whoever else writes there goes on waiting for the reader.
TEST(Output, DoesNotBlockAndLeavesItsModeToOthers)
{
    for (const bool is_pipe : {true, false}) {
        int ends[2];
        ASSERT_EQ(0, is_pipe ? pipe2(ends, O_CLOEXEC)
                             : socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
        const Fd reader(ends[0]);
        const Fd shared(ends[1]);
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            dup2(shared.get(), STDOUT_FILENO);
            dup2(shared.get(), STDERR_FILENO);
            va::keep_output_from_blocking();
            for (int line = 0; line < 20'000; ++line)
                std::fprintf(line % 2 ? stderr : stdout, "one of very many lines\n");
            _exit((va::lost_output_lines() > 0) + 2 * (fcntl(shared.get(), F_GETFL) & O_NONBLOCK));
        }
        int status = -1;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1);
    }
}

// Its opening lets a writer through that waits for it; what lay there before goes to nobody.
TEST_F(HealthTest, KeepsALineThatComesWhileTheFifoIsTakenOver)
{
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(files.path());
    mkfifo("run/ctrl", 0600);
    const auto left_of = [](const Fd &fifo) {
        char text[64];
        const ssize_t length = read(fifo.get(), text, sizeof text);
        return string(text, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    };
    std::jthread writer([&] { std::ofstream(files.file("run/ctrl")) << "status\n"; }); // waits
    std::this_thread::sleep_for(milliseconds(20)); // files are stamped by a coarse clock
    wait_for_bytes = true;
    static VaContext context;
    EXPECT_EQ(0, va_init(&context));
    wait_for_bytes = false;
    EXPECT_EQ("status\n", left_of(Fd(open("run/ctrl", O_RDONLY | O_NONBLOCK | O_CLOEXEC))));
    context.threadEnded = 1; // none was started
    msg_release(&context.msg);
    va_stop(&context);
    const Fd holder(open("run/ctrl", O_RDWR | O_CLOEXEC));
    EXPECT_EQ(4, write(holder.get(), "old\n", 4));
    EXPECT_EQ("", left_of(va::prepare_control_fifo()));
    std::filesystem::current_path(before);
}

TEST(Log, DoesNotWaitForASystemLogThatTakesNothing)
{
    const TempDir dir;
    const sockaddr_un address = address_of(dir.file("log"));
    const auto *const generic = reinterpret_cast<const sockaddr *>(&address);
    const Fd log(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0));
    ASSERT_EQ(0, bind(log.get(), generic, sizeof address));
    log_socket = dir.file("log");
    const auto say = [] { va::log_error("line %d", 5); };
    EXPECT_EQ("VA: line 5\n", stderr_of(say));
    char line[64] = "";
    EXPECT_LT(0, recv(log.get(), line, sizeof line - 1, 0));
    EXPECT_TRUE(string(line).starts_with("<11>") && string(line).ends_with(" VA: line 5")) << line;
    for (int times = 0; times < 400; ++times)
        EXPECT_EQ("VA: line 5\n", stderr_of(say));
    log_socket.clear();
}

// It loses the file, or the line.
TEST_F(HealthTest, RunsWithoutRoomForWhatItWrites)
{
    mkfifo(files.file("out.err").c_str(), 0600);
    const Fd err(open(files.file("out.err").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    const auto told_once = [&](const string &line) { // since the last call
        string log(1 << 16, '\0');
        return read(err.get(), log.data(), log.size()) > 0 && once(line, log);
    };
    rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit none{0, limit.rlim_max};
    mkfifo(files.file("out").c_str(), 0600);
    const Fd output(open(files.file("out").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    files.write("scene", "every 20 ta 1 2 3 4\n");
    Program old("sleep", files.path(), {"60"}, "old");
    files.write("run/pid", std::to_string(old.pid()));
    Daemon daemon(files, {"-t"});
    EXPECT_TRUE(wait_until([&] { return told_once("Waiting now."); }));
    prlimit(daemon.pid(), RLIMIT_FSIZE, &none, nullptr);
    EXPECT_FALSE(old.wait_for_exit()); // by itself; as long as it is not waited for it is there
    Client client(files.file("run/ta"));
    EXPECT_TRUE(client.next());
    EXPECT_FALSE(std::filesystem::exists(files.file("run/pid")));
    EXPECT_TRUE(told_once("VA: run/pid cannot be written whole: there is no PID file.\n"));
    const auto tries_in_vain = [&] {
        const auto before = std::filesystem::last_write_time(files.file("run"));
        request("status\n");
        return wait_until(
            [&] { return std::filesystem::last_write_time(files.file("run")) != before; });
    };
    const string cannot_write = "VA: Can't write run/status: File too large.\n";
    EXPECT_TRUE(tries_in_vain() && tries_in_vain());
    prlimit(daemon.pid(), RLIMIT_FSIZE, &limit, nullptr);
    EXPECT_TRUE(wait_until([&] { return files.read("run/pid") == std::to_string(daemon.pid()); }));
    Status status = ask();
    EXPECT_TRUE(status.contains("va.process") && status["va.lost_lines"] == "0");
    EXPECT_EQ("", status["va.run_dir"]);
    EXPECT_TRUE(told_once(cannot_write));
    const string filling(4096, '.');
    while (write(output.get(), filling.data(), filling.size()) > 0) {
    }
    while (!HasFailure() && ask()["va.lost_lines"] == "0") {
        const Client another(files.file("run/ta"));
        EXPECT_TRUE(client.next());
    }
    prlimit(daemon.pid(), RLIMIT_FSIZE, &none, nullptr);
    EXPECT_TRUE(tries_in_vain());
    daemon.signal(SIGTERM);
    EXPECT_TRUE(daemon.wait_for_exit() && told_once(cannot_write)); // could in between
    EXPECT_FALSE(
        std::filesystem::exists(files.file("run/status." + std::to_string(daemon.pid()) + ".new")));
}

} // namespace
