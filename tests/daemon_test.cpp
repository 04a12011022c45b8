#include "tests/support/daemon.h"
#include "tests/support/wait.h"

#include <csignal>
#include <set>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using std::string;
using Names = std::set<string>;

const string all_modules = "EventDetection.CameraTampering=yes\nEventDetection.FaceDetection=1\n"
                           "ImageSource.I0.Sensor.DIS=on\n";
const string alarms = "every 50 ta 1 0x20 3 0xffffffff\n";

class DaemonTest : public testing::Test
{
protected:
    // What is in the run directory, but for the PID file.
    Names made() const
    {
        Names names;
        for (const auto &entry : std::filesystem::directory_iterator(files.file("run")))
            names.insert(entry.path().filename().string());
        names.erase("pid");
        return names;
    }

    void expect_stop(Daemon &daemon, int signal = SIGTERM) const
    {
        daemon.signal(signal);
        EXPECT_TRUE(daemon.wait_for_exit()) << daemon.output() << daemon.log();
        EXPECT_NE(string::npos, daemon.output().find("sig1_handler terminate = 1\n"));
        EXPECT_NE(string::npos, daemon.log().find("VA: Application quit.\n"));
        EXPECT_FALSE(std::filesystem::exists(files.file("run/pid")));
    }

    DaemonFiles files;
};

TEST_F(DaemonTest, RelaysAlarmsToEveryClientAndAppliesChanges)
{
    files.write("scene", alarms);
    Daemon daemon(files, {"-t"});
    const Client clients[] = {Client(files.file("run/ta")), Client(files.file("run/ta"))};
    const std::uint32_t alarm[] = {1, 0x20, 3, 0xffffffff};
    for (int count = 0; count < 4; ++count)
        EXPECT_EQ(string(reinterpret_cast<const char *>(alarm), sizeof alarm),
                  clients[count % 2].next());
    EXPECT_EQ((Names{"ctrl", "ta"}), made());
    EXPECT_EQ(std::to_string(daemon.pid()), files.read("run/pid"));

    files.reconfigure(); // nothing changed: no call
    files.store("CameraTampering.T0.gcRegionSens=51\n");
    files.reconfigure();
    EXPECT_TRUE(daemon.wait_for_log("gcRegionSens=51"));
    expect_stop(daemon);
    const string log = daemon.log();
    EXPECT_EQ(log.rfind("sim: ta control"), log.find("sim: ta control", log.find("control") + 1));
    while (clients[0].next()) {
    }
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
        {{"word"}, all_modules, {"ctrl"}, ""},
    };
    for (const auto &test : cases) {
        files.store(test.store);
        std::filesystem::remove_all(files.file("run"));
        std::filesystem::create_directory(files.file("run"));
        Daemon daemon(files, test.arguments);
        EXPECT_TRUE(daemon.wait_for_output(test.line));
        EXPECT_TRUE(wait_until([&] { return made() == test.made; }));
        EXPECT_EQ(test.arguments.empty(), daemon.output().find("od=") != string::npos);
        expect_stop(daemon, SIGINT);
    }
    for (const char *option : {"-x", "-h", "-?", "-tx", "--help"}) {
        Daemon daemon(files, {"-t", option});
        EXPECT_TRUE(daemon.wait_for_exit());
        EXPECT_EQ("usage: va [-o|-f|-t|-d]\n", daemon.output());
        EXPECT_EQ("", daemon.log());
        EXPECT_FALSE(std::filesystem::exists(files.file("run/pid")));
    }
}

TEST_F(DaemonTest, ReplacesARunningInstanceAndRemovesAStalePidFile)
{
    Daemon old(files, {"-t"}, "old");
    ASSERT_TRUE(old.wait_for_log("sim: ta control"));
    Daemon fresh(files, {"-t"}, "fresh");
    EXPECT_TRUE(old.wait_for_exit());
    ASSERT_TRUE(fresh.wait_for_log("sim: ta control"));
    EXPECT_TRUE(fresh.wait_for_log("VA: ==> Warning: Old process is not stop. Waiting now.\n"));
    EXPECT_EQ(std::to_string(fresh.pid()), files.read("run/pid"));
    expect_stop(fresh);

    for (const string &content : {std::to_string(old.pid()), string(), string("rubbish")}) {
        files.write("run/pid", content);
        std::filesystem::remove(files.file("run/ctrl"));
        Daemon daemon(files, {"word"});
        ASSERT_TRUE(wait_until([&] { return made().contains("ctrl"); })) << daemon.log();
        EXPECT_NE(string::npos, daemon.log().find("stale"));
        EXPECT_EQ(std::to_string(daemon.pid()), files.read("run/pid"));
        expect_stop(daemon);
    }
}

TEST_F(DaemonTest, WaitsForALivingInstanceUntilItIsStoppedItself)
{
    const pid_t stubborn = fork();
    if (stubborn == 0) {
        signal(SIGTERM, SIG_IGN);
        files.write("run/pid", std::to_string(getpid()));
        for (;;)
            pause();
    }
    ASSERT_TRUE(wait_until([&] { return files.read("run/pid") == std::to_string(stubborn); }));
    Daemon daemon(files, {"-t"});
    EXPECT_TRUE(daemon.wait_for_log("Old process is not stop", 2));
    daemon.signal(SIGTERM);
    EXPECT_TRUE(daemon.wait_for_exit());
    EXPECT_EQ(Names(), made());
    EXPECT_EQ(std::to_string(stubborn), files.read("run/pid"));
    kill(stubborn, SIGKILL);
    waitpid(stubborn, nullptr, 0);
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
        expect_stop(daemon, SIGINT);
    }
}

TEST_F(DaemonTest, EndsWhenItCannotStart)
{
    const string sensor = "Properties.ImageSource.Sensor=";
    const struct {
        string scene, store, line;
    } cases[] = {
        {"fail ne3_cl_cpu3_boot 1 5\nfail ne3_cl_cpu3_boot 2 5\n", "", "VA: va_init: fail.\n"},
        {"fail ne3_cl_library_init 1 0x1f\n", "", "ne3_cl_library_init fail, errno = 1F .\n"},
        {"fail ne3_val_open 1 5\n", "", "VA: va_vana_init: ne3_val_open fail.\n"},
        {"", sensor + "nosuch\n", "Unknow sensor type [nosuch]!\n"},
        {"", sensor + "ov9712\nProperties.Image.ProfileMode=720P\n",
         "VA: va_vana_boot: Sensor ov9712 is not supported\n"},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.scene + test.store);
        files.write("scene", test.scene);
        files.store(test.store);
        Daemon daemon(files, {"-t"});
        EXPECT_TRUE(daemon.wait_for_exit());
        EXPECT_NE(string::npos, (daemon.output() + daemon.log()).find(test.line));
        EXPECT_NE(string::npos, daemon.log().find("VA: Application quit.\n"));
        EXPECT_EQ(string::npos, daemon.output().find("va_proc: end")); // no thread was started
        EXPECT_FALSE(std::filesystem::exists(files.file("run/pid")));
    }
}

// Modules open in a fixed order. One that fails keeps the later ones closed and costs no socket.
TEST_F(DaemonTest, GoesOnAfterAFailure)
{
    const struct {
        string scene, log;
        string last_started, not_started;
    } cases[] = {
        {"fail ne3_val_fd_open 1 5\n", "VA: fd_open failed.\n", "init fd.\n", "init ta\n"},
        {"fail ne3_val_ta_start 1 5\n", "VA: start failed.\n", "init ta\n", "==>va_dis_set_ctrl"},
        {"fail ne3_val_od_get_data 3 5\n", "VA: ne3_val_od_get_data failed.\n",
         "==>va_dis_set_ctrl", "va_init: fail."},
        {"fail ne3_cl_cpu3_boot 1 5\n", "VA: vanafw boot failed.\nVA: errno : 0x00000005\n",
         "==>va_dis_set_ctrl", "va_init: fail."}, // a second boot works
    };
    files.store(all_modules);
    for (const auto &test : cases) {
        SCOPED_TRACE(test.scene);
        files.write("scene", test.scene);
        Daemon daemon(files);
        EXPECT_TRUE(daemon.wait_for_log(test.log));
        EXPECT_TRUE(daemon.wait_for_output(test.last_started));
        for (const string stream : {"od", "vmf", "fd", "ta"}) {
            const Client client(files.file("run/" + stream));
            EXPECT_TRUE(
                daemon.wait_for_output("run/" + stream + ": accept client. previous clients=0\n"));
        }
        expect_stop(daemon);
        EXPECT_EQ(string::npos, (daemon.output() + daemon.log()).find(test.not_started));
    }
}

// What is in the way of the daemon's files costs that file, not the daemon.
TEST_F(DaemonTest, LivesWithABadRunDirectory)
{
    const auto expect_service = [&](const char *complaint) {
        Daemon daemon(files, {"-t"});
        EXPECT_TRUE(Client(files.file("run/ta")).next());
        EXPECT_TRUE(daemon.wait_for_output(complaint));
        expect_stop(daemon);
    };
    files.write("scene", alarms);
    files.write("run/ctrl", "not a FIFO");
    expect_service("msg_read(): error ************************************!\n");
    std::filesystem::remove_all(files.file("run")); // made by the daemon, too late for the PID file
    expect_service("Can't open run/pid .\n");
    std::filesystem::remove_all(files.file("run"));
    files.write("run", "not a directory");
    Daemon daemon(files, {"-t"});
    for (const char *line :
         {"sim: ta control", "Can't bind socket !\n", "create pipe run/ctrl fail!"})
        EXPECT_TRUE(daemon.wait_for_log(line));
    EXPECT_TRUE(daemon.wait_for_output("msg_start: fail !\n"));
    expect_stop(daemon);
}

} // namespace
