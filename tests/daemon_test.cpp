#include "tests/support/client_data.h"
#include "tests/support/daemon.h"
#include "tests/support/store_file.h"
#include "tests/support/wait.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <deque>
#include <set>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using std::string;
using Names = std::set<string>;
using Words = std::vector<std::uint32_t>;

const string all_modules = "EventDetection.CameraTampering=yes\nEventDetection.FaceDetection=1\n"
                           "ImageSource.I0.Sensor.DIS=on\n";
const string alarms = "every 50 ta 1 0x20 3 0xffffffff\n";

// What is in the run directory, but for the PID file.
Names names_in_run(const DaemonFiles &files)
{
    Names names;
    for (const auto &entry : std::filesystem::directory_iterator(files.file("run")))
        names.insert(entry.path().filename().string());
    names.erase("pid");
    return names;
}

// What a child of the process would inherit, but for the standard descriptors.
Names inheritable(pid_t process)
{
    Names found;
    const string folder = "/proc/" + std::to_string(process);
    for (const auto &entry : std::filesystem::directory_iterator(folder + "/fdinfo")) {
        const string number = entry.path().filename().string();
        const string info = read_file(entry.path().string());
        const auto flags = std::stoul(info.substr(info.find("flags:") + 6), nullptr, 8);
        if (std::stoi(number) > STDERR_FILENO && !(flags & O_CLOEXEC))
            found.insert(number + " " +
                         std::filesystem::read_symlink(folder + "/fd/" + number).string());
    }
    return found;
}

// A process that stays, killed in the end.
struct Bystander {
    explicit Bystander(void (*on_sigterm)(int)) : pid(fork())
    {
        if (pid == 0) {
            signal(SIGTERM, on_sigterm);
            for (;;)
                pause();
        }
    }
    ~Bystander() { end(); }
    bool lives() const { return waitpid(pid, nullptr, WNOHANG) == 0; }
    void end()
    {
        if (!lives()) // or has been waited for before
            return;
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }

    pid_t pid;
};

struct DaemonTest : testing::Test {
    Names made() const { return names_in_run(files); }

    DaemonFiles files;
};

TEST_F(DaemonTest, RelaysAlarmsToEveryClientAndAppliesChanges)
{
    files.write("scene", alarms);
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit lowered{100, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &lowered);
    const mode_t mask = umask(0);
    const Names inherited = inheritable(getpid());
    setenv("NOTIFY_SOCKET", "/nobody", 1);
    Daemon daemon(files, {"-t"});
    unsetenv("NOTIFY_SOCKET");
    umask(mask);
    setrlimit(RLIMIT_NOFILE, &limit);
    Client clients[] = {Client(files.file("run/ta")), Client(files.file("run/ta"))};
    daemon.signal(SIGPIPE); // does nothing
    for (int count = 0; count < 4; ++count)
        EXPECT_EQ(words({1, 0x20, 3, 0xffffffff}), clients[count % 2].next());
    pipe_write_str(files.file("run/ctrl").c_str(), "status\n");
    EXPECT_TRUE(wait_until([&] { return made() == Names{"ctrl", "status", "ta"}; }));
    for (const string name : {"ctrl", "pid", "status", "ta"})
        EXPECT_EQ(std::filesystem::perms(name == "ctrl" || name == "ta" ? 0777 : 0644),
                  std::filesystem::status(files.file("run/" + name)).permissions());
    EXPECT_EQ(std::to_string(daemon.pid()), files.read("run/pid"));
    EXPECT_EQ(inherited, inheritable(daemon.pid()));
    prlimit(daemon.pid(), RLIMIT_NOFILE, nullptr, &limit);
    EXPECT_EQ(std::min<rlim_t>(1024 + 64, limit.rlim_max), limit.rlim_cur);

    files.reconfigure("CameraTampering.T0.gcRegionSens=51\n");
    EXPECT_TRUE(daemon.wait_for_log("gcRegionSens=51"));
    files.store("CameraTampering.T0.gcRegionSens=52\n");
    daemon.signal(SIGHUP);
    EXPECT_TRUE(daemon.wait_for_log("gcRegionSens=52"));
    EXPECT_TRUE(daemon.stop());
    EXPECT_EQ(string::npos, daemon.log().find("Make run")); // nothing is wrong with the directory
}

TEST_F(DaemonTest, SelectsModules)
{
    const struct {
        std::vector<string> arguments;
        string store;
        Names made;
        string line; // or what is started last
    } cases[] = {
        {{}, "", {"ctrl", "od", "vmf"}, "od=1,fd=0,ta=0,dis=0\n"},
        {{}, all_modules, {"ctrl", "od", "vmf", "fd", "ta"}, "od=1,fd=1,ta=1,dis=1\n"},
        {{"-td"}, "", {"ctrl", "ta"}, "==>va_dis_set_ctrl"},
        {{"-f", "-f", "word"}, all_modules, {"ctrl", "fd"}, "init fd.\n"},
    };
    for (const auto &test : cases) {
        files.store(test.store);
        for (const string &name : made())
            std::filesystem::remove(files.file("run/" + name));
        Daemon daemon(files, test.arguments);
        EXPECT_TRUE(daemon.wait_for_output(test.line));
        EXPECT_TRUE(wait_until([&] { return made() == test.made; }));
        EXPECT_TRUE(daemon.stop(SIGINT));
    }
    for (const char *option : {"-x", "-h", "-tx", "--help"}) {
        Daemon daemon(files, {"-t", option});
        EXPECT_TRUE(daemon.wait_for_exit() && daemon.log().empty());
        EXPECT_EQ("usage: va [-o|-f|-t|-d]\n", daemon.output());
        EXPECT_FALSE(std::filesystem::exists(files.file("run/pid")));
    }
}

TEST_F(DaemonTest, ReplacesARunningInstance)
{
    mkfifo(files.file("run/ctrl").c_str(), 0600);
    const Fd writer(open(files.file("run/ctrl").c_str(), O_RDWR | O_CLOEXEC)); // stays
    EXPECT_EQ(3, write(writer.get(), "\0re", 3));                              // to nobody
    const auto changes = [&](const Daemon &daemon, const string &setting) {
        files.store("CameraTampering.T0." + setting + "\n");
        return write(writer.get(), "reconfig\n", 9) == 9 && daemon.wait_for_log(setting);
    };
    Daemon old(files, {"-t"}, "old");
    ASSERT_TRUE(old.wait_for_log("sim: ta control"));
    EXPECT_TRUE(changes(old, "gcRegionSens=51"));
    Daemon fresh(files, {"-t"}, "fresh");
    EXPECT_TRUE(old.wait_for_exit());
    ASSERT_TRUE(fresh.wait_for_log("sim: ta control"));
    EXPECT_TRUE(fresh.wait_for_log("VA: ==> Warning: Old process is not stop. Waiting now.\n"));
    EXPECT_EQ(std::to_string(fresh.pid()), files.read("run/pid"));
    EXPECT_TRUE(changes(fresh, "gcRegionSens=52"));
    EXPECT_TRUE(fresh.stop());
}

TEST_F(DaemonTest, WaitsForALivingInstanceUntilItIsStoppedItself)
{
    const string waiting = "Old process is not stop";
    const bool may_chown = geteuid() == 0;
    Bystander stubborn(may_chown ? SIG_DFL : SIG_IGN);
    const string recorded = std::to_string(stubborn.pid) + '\n'; // as `echo` writes it
    files.write("run/pid", recorded);
    // Another user's is not asked to stop.
    EXPECT_TRUE(!may_chown || chown(files.file("run/pid").c_str(), 1, 1) == 0);
    Daemon stopped(files, {"word"}, "stopped");
    EXPECT_TRUE(stopped.wait_for_log(waiting, 2) && stubborn.lives());
    stopped.signal(SIGTERM);
    EXPECT_TRUE(stopped.wait_for_exit());
    EXPECT_EQ(Names(), made());
    EXPECT_EQ(recorded, files.read("run/pid"));

    // A file that cannot be read, here for lack of descriptors, may be a living instance's.
    Daemon daemon(files, {"word"});
    EXPECT_TRUE(daemon.wait_for_log(waiting));
    rlimit limit;
    ASSERT_EQ(0, prlimit(daemon.pid(), RLIMIT_NOFILE, nullptr, &limit));
    const rlimit none{STDERR_FILENO + 1, limit.rlim_max};
    ASSERT_EQ(0, prlimit(daemon.pid(), RLIMIT_NOFILE, &none, nullptr));
    stubborn.end();
    EXPECT_TRUE(daemon.wait_for_log(waiting, 3));
    EXPECT_EQ(recorded, files.read("run/pid"));
    files.write("pid", std::to_string(daemon.pid())); // by chance that of an earlier boot
    std::filesystem::rename(files.file("pid"), files.file("run/pid"));
    ASSERT_EQ(0, prlimit(daemon.pid(), RLIMIT_NOFILE, &limit, nullptr));
    EXPECT_TRUE(wait_until([&] { return made().contains("ctrl"); })) << daemon.log();
    files.write("run/pid", recorded); // of one that has taken over, and is not undone
    daemon.signal(SIGTERM);
    EXPECT_TRUE(daemon.wait_for_exit());
    EXPECT_EQ(recorded, files.read("run/pid"));
}

// It signals no one, reads and writes nothing but a file that is one, and is removed.
TEST_F(DaemonTest, TrustsNoPidFileThatNamesNoProcess)
{
    const Bystander bystander(SIG_DFL);
    Bystander dead(SIG_DFL);
    dead.end();
    const string number = std::to_string(bystander.pid);
    const string padded = string(32 - number.size(), '0') + number + ' '; // longer than is read
    const string gone = std::to_string(dead.pid);
    const string others = gone + '\n'; // another user's, if that can be
    const string texts[] = {
        gone, "", "-KILL " + number, number + ' ' + number, padded, "link", "FIFO", others, "-1"};
    std::deque<DaemonFiles> places(std::size(texts));
    std::deque<Daemon> daemons;
    for (std::size_t i = 0; i < std::size(texts); ++i) {
        const string pid_file = places[i].file("run/pid");
        places[i].write("target", number);
        if (texts[i] == "link")
            std::filesystem::create_symlink("../target", pid_file);
        else if (texts[i] == "FIFO")
            mkfifo(pid_file.c_str(), 0644);
        else
            places[i].write("run/pid", texts[i]);
        EXPECT_TRUE(texts[i] != others || geteuid() != 0 || chown(pid_file.c_str(), 1, 1) == 0);
        daemons.emplace_back(places[i], std::vector<string>{"word"});
    }
    for (Daemon &daemon : daemons) {
        EXPECT_TRUE(wait_until([&] { return names_in_run(daemon.files).contains("ctrl"); }));
        EXPECT_NE(string::npos, daemon.log().find("stale")) << daemon.log();
        EXPECT_EQ(std::to_string(daemon.pid()), daemon.files.read("run/pid"));
        EXPECT_EQ(number, daemon.files.read("target"));
        EXPECT_TRUE(daemon.stop());
    }
    EXPECT_TRUE(bystander.lives());
}

TEST_F(DaemonTest, StopsInEveryState)
{
    files.write("scene", alarms);
    for (const char *state : {"", "vectorSize", "init ta", "accept client"}) {
        Daemon daemon(files, {"-t"});
        ASSERT_TRUE(wait_until([&] { return !files.read("run/pid").empty(); }));
        if (string(state) == "accept client")
            const Client client(files.file("run/ta"));
        ASSERT_TRUE(daemon.wait_for_output(state));
        daemon.signal(SIGTERM);
        EXPECT_TRUE(daemon.stop(SIGINT));
    }
}

// Modules open in a fixed order. One that fails keeps the later ones closed and costs no socket.
TEST_F(DaemonTest, GoesOnAfterAFailureUnlessItCannotStart)
{
    const struct {
        string scene, log, store;
        string last_started; // nothing: the daemon ends
        string not_started;
    } cases[] = {
        {"fail ne3_val_ta_start 1 5\n", "VA: start failed.\n", all_modules, "init ta\n",
         "==>va_dis_set_ctrl"},
        {"fail ne3_val_od_get_data 3 5\n", "VA: ne3_val_od_get_data failed.\n", all_modules,
         "==>va_dis_set_ctrl", "va_init: fail."},
        {"", "Unknow sensor type [nosuch]!\n", "Properties.ImageSource.Sensor=nosuch\n", "",
         "va_proc: end"},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.log);
        files.write("scene", test.scene);
        files.store(test.store);
        Daemon daemon(files);
        EXPECT_TRUE(daemon.wait_for_log(test.log));
        EXPECT_TRUE(daemon.wait_for_output(test.last_started));
        if (test.last_started.empty()) {
            EXPECT_TRUE(daemon.wait_for_exit());
            EXPECT_TRUE(daemon.log().ends_with("VA: Application quit.\n"));
            EXPECT_FALSE(std::filesystem::exists(files.file("run/pid")));
        } else {
            for (const string stream : {"od", "vmf", "fd", "ta"}) {
                const Client client(files.file("run/" + stream));
                EXPECT_TRUE(daemon.wait_for_output("run/" + stream + ": accept client. previous "));
            }
            EXPECT_TRUE(daemon.stop());
        }
        EXPECT_EQ(string::npos, (daemon.output() + daemon.log()).find(test.not_started));
    }
}

// What is in the way of the daemon's files costs that file, not the daemon; what others may change
// is told.
TEST_F(DaemonTest, LivesWithABadRunDirectory)
{
    const auto expect_service = [&](const string &log, const string &complaint) {
        Daemon daemon(files, {"-ot"});
        EXPECT_TRUE(Client(files.file("run/ta")).next());
        EXPECT_TRUE(daemon.wait_for_log("VA: " + log));
        EXPECT_TRUE(daemon.stop());
        EXPECT_NE(string::npos, (daemon.output() + daemon.log()).find(complaint)) << complaint;
    };
    const string others = "run is writable for others. run/ctrl is writable for others. ";
    files.write("scene", alarms);
    files.write("target", "kept");
    std::filesystem::create_symlink("../target", files.file("run/pid.lock")); // is not followed
    std::filesystem::create_symlink("../target", files.file("run/ctrl"));
    expect_service("run/ctrl is a link. Make run again before va starts", "");
    EXPECT_TRUE(std::filesystem::is_fifo(files.file("run/ctrl")));
    EXPECT_EQ("kept", files.read("target"));
    std::filesystem::remove(files.file("run/ctrl"));
    files.write("run/ctrl", "");
    expect_service("run/ctrl is of the wrong kind. ", "");
    EXPECT_TRUE(std::filesystem::is_fifo(files.file("run/ctrl")));
    if (struct stat fifo; chown(files.file("run/ctrl").c_str(), 1, 1) == 0) { // by root
        expect_service("run/ctrl belongs to another user. ", "");
        EXPECT_TRUE(stat(files.file("run/ctrl").c_str(), &fifo) == 0 && fifo.st_uid == 0);
    }
    std::filesystem::remove(files.file("run/ctrl"));
    std::filesystem::create_directories(files.file("run/ctrl/full"));
    expect_service("run/ctrl is of the wrong kind. ", "Can't open run/ctrl .\nmsg_start: fail !\n");
    std::filesystem::remove_all(files.file("run")); // made by the daemon, too late for the PID file
    const mode_t mask = umask(S_IWGRP);
    expect_service("run: No such file or directory. ", "Can't open run/pid .\n");
    std::filesystem::remove(files.file("run/vmf"));
    std::filesystem::create_symlink("elsewhere", files.file("run/vmf"));
    expect_service(others + "run/vmf is a link. Make run", "");
    umask(mask);
    std::filesystem::remove(files.file("run/od"));
    std::filesystem::create_directory(files.file("run/od"));
    expect_service(others + "run/od is of the wrong kind. Make", "Can't bind socket !\n");
    std::filesystem::remove_all(files.file("run"));
    files.write("run", "not a directory");
    Daemon daemon(files, {"-t"});
    EXPECT_TRUE(daemon.wait_for_log("ta control") && daemon.wait_for_output("msg_start: fail !\n"));
    EXPECT_TRUE(daemon.stop());
}

// Reads on until a record is as wanted, of which every `step`th word is looked at.
bool comes(Client &client, const Words &wanted, std::size_t step)
{
    auto record = client.next();
    for (int count = 0; record && count < 2000; ++count, record = client.next()) {
        Words words(record->size() / sizeof(std::uint32_t));
        std::memcpy(words.data(), record->data(), words.size() * sizeof(std::uint32_t));
        Words found;
        for (std::size_t i = 0; i < words.size(); i += step)
            found.push_back(words[i]);
        if (found == wanted)
            return true;
    }
    return false;
}

TEST_F(DaemonTest, ShowsTheEffectOfEachChange)
{
    constexpr std::size_t object_words = 10; // the stand-in's, the number first
    string scene = "od_interval 20\nperiod 400\nobject 7 dynamic 192x108 from 480,540 to 480,540 "
                   "between 0 400\n"
                   "object 8 dynamic 384x216 from 1000,540 to 1400,540 between 0 400\n";
    Words numbers = {7, 8};
    for (; numbers.size() < 50; numbers.push_back(9)) // more than other streams' clients may have
        scene += "object 9 dynamic 384x216 from 200,540 to 200,540 between 0 400\n";
    files.write("scene", scene);
    Daemon daemon(files, {"-o"});
    Client od(files.file("run/od"));
    Client vmf(files.file("run/vmf"));
    EXPECT_TRUE(comes(od, numbers, object_words));
    files.reconfigure(window("VMDWindow.NonDetect.V2.", 0, 4000, 0, 9999));
    EXPECT_TRUE(comes(od, {8}, object_words));
    // Each in its own read, an interval after the one before: of many three in a row.
    const Client another(files.file("run/od"));
    Words frame(100);
    int in_a_row = 0;
    for (int reads = 0; reads < 1000 && in_a_row < 3; ++reads) {
        const std::uint32_t next = frame[7] + 20; // the centre moves a pixel in a millisecond
        const ssize_t got = read(another.fd(), frame.data(), frame.size() * sizeof next);
        in_a_row = got == 44 && frame[7] == next ? in_a_row + 1 : 0;
    }
    EXPECT_EQ(3, in_a_row);
    files.reconfigure("VMDWindow.MaxDetectionSize=200x200\n");
    EXPECT_TRUE(comes(od, {7}, object_words));
    // The line is the first filter whatever the numbers, the area the only one of its code.
    files.reconfigure(
        window("ObjectDetection.O0.", 1000, 4000, 1000, 9000) + "ObjectDetection.O0.Type=1\n" +
        lines("CrossLine.C2.", {"StartX=6250", "StartY=0", "EndX=6250", "EndY=9999"}));
    EXPECT_TRUE(comes(vmf, {0, 0, 0, 1}, 1));
    EXPECT_TRUE(comes(vmf, {0, 1, 0, 1}, 1));
    EXPECT_TRUE(daemon.stop());
}

} // namespace
