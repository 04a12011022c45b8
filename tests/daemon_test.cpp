#include "tests/support/daemon.h"
#include "tests/support/firmware.h"
#include "tests/support/wait.h"

#include <algorithm>
#include <csignal>
#include <set>
#include <utility>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using std::string;

class DaemonTest : public testing::Test
{
protected:
    // Socket files and FIFOs in the run directory, without the PID file.
    std::set<string> made() const
    {
        std::set<string> names;
        for (const auto &entry : std::filesystem::directory_iterator(files.file("run")))
            names.insert(entry.path().filename().string());
        names.erase("pid");
        return names;
    }

    void reconfigure() const { files.write("run/ctrl", "reconfig\n"); }

    static void expect_stop(Daemon &daemon, int signal = SIGTERM)
    {
        daemon.signal(signal);
        EXPECT_TRUE(daemon.wait_for_exit()) << daemon.output() << daemon.log();
        EXPECT_NE(string::npos, daemon.output().find("sig1_handler terminate = 1\n"));
        EXPECT_NE(string::npos, daemon.log().find("VA: Application quit.\n"));
    }

    DaemonFiles files;
};

TEST_F(DaemonTest, RelaysTamperAlarmsToEveryClient)
{
    files.write("scene", "every 50 ta 1 0x20 3 0xffffffff\n");
    Daemon daemon(files, {"-t"});
    Client first(files.file("run/ta"));
    Client second(files.file("run/ta"));
    for (const Client *client : {&first, &second, &first, &second}) {
        string record;
        ASSERT_TRUE(client->next(record));
        const std::uint32_t words[] = {1, 0x20, 3, 0xffffffff};
        EXPECT_EQ(string(reinterpret_cast<const char *>(words), sizeof words), record);
    }
    EXPECT_EQ((std::set<string>{"ctrl", "ta"}), made());
    EXPECT_EQ(std::to_string(daemon.pid()), files.read("run/pid"));
    expect_stop(daemon);
    EXPECT_FALSE(std::filesystem::exists(files.file("run/pid")));
    EXPECT_EQ(string::npos, daemon.log().find("get_data failed")); // a cancelled read is no failure
    string record;
    while (first.next(record)) {
    }
}

TEST_F(DaemonTest, AppliesChangedSettingsOnRequest)
{
    Daemon daemon(files, {"-t"});
    ASSERT_TRUE(daemon.wait_for_log("sim: ta control"));
    ASSERT_TRUE(wait_until([&] { return made().contains("ctrl"); }));
    reconfigure(); // nothing changed: no call
    files.store("CameraTampering.T0.gcRegionSens=51\n");
    reconfigure();
    ASSERT_TRUE(daemon.wait_for_log("gcRegionSens=51"));
    expect_stop(daemon, SIGINT);
    const string log = daemon.log();
    EXPECT_EQ(log.rfind("sim: ta control"), log.find("sim: ta control", log.find("control") + 1));
}

TEST_F(DaemonTest, SelectsModules)
{
    const string all = "EventDetection.CameraTampering=yes\nEventDetection.FaceDetection=1\n"
                       "ImageSource.I0.Sensor.DIS=on\n";
    const struct {
        std::vector<string> arguments;
        string store;
        std::set<string> streams;
        string line; // or what is started last
    } cases[] = {
        {{}, "", {"od", "vmf"}, "od=1,fd=0,ta=0,dis=0\n"},
        {{}, all, {"od", "vmf", "fd", "ta"}, "od=1,fd=1,ta=1,dis=1\n"},
        {{"-td"}, "", {"ta"}, "==>va_dis_set_ctrl"},
        {{"-f", "-f", "word"}, all, {"fd"}, "init fd.\n"},
        {{"word"}, all, {}, ""},
    };
    for (const auto &test : cases) {
        files.store(test.store);
        std::filesystem::remove_all(files.file("run"));
        std::filesystem::create_directory(files.file("run"));
        Daemon daemon(files, test.arguments);
        EXPECT_TRUE(daemon.wait_for_output(test.line));
        std::set<string> wanted = test.streams;
        wanted.insert("ctrl");
        EXPECT_TRUE(wait_until([&] { return made() == wanted; }));
        EXPECT_EQ(test.arguments.empty(), daemon.output().find("od=") != string::npos);
        expect_stop(daemon);
    }
}

// Opened in a fixed order; one that cannot be opened keeps the later ones closed, and costs no
// socket.
TEST_F(DaemonTest, OpensModulesInOrder)
{
    files.store("EventDetection.CameraTampering=yes\nEventDetection.FaceDetection=yes\n"
                "ImageSource.I0.Sensor.DIS=yes\n");
    const std::vector<string> steps{"init od.\n", "init fd.\n", "init ta\n", "==>va_dis_set_ctrl"};
    const struct {
        const char *scene;
        std::size_t started; // steps taken
    } cases[] = {{"", 4}, {"fail ne3_val_fd_open 1 5\n", 2}};
    for (const auto &test : cases) {
        files.write("scene", test.scene);
        Daemon daemon(files);
        ASSERT_TRUE(daemon.wait_for_output(test.started == 4 ? steps.back() : "va_proc: end\n"));
        const string output = daemon.output();
        std::size_t at = 0;
        for (std::size_t i = 0; i < steps.size(); ++i) {
            const std::size_t found = output.find(steps[i], at);
            EXPECT_EQ(i < test.started, found != string::npos) << steps[i];
            at = std::min(found, output.size());
        }
        for (const string stream : {"od", "vmf", "fd", "ta"}) {
            const Client client(files.file("run/" + stream));
            EXPECT_TRUE(daemon.wait_for_output("run/" + stream + ": accept client."));
        }
        expect_stop(daemon);
    }
}

TEST_F(DaemonTest, ShowsItsUsage)
{
    for (const char *option : {"-x", "-h", "-?", "-tx", "--help"}) {
        Daemon daemon(files, {"-t", option});
        EXPECT_TRUE(daemon.wait_for_exit());
        EXPECT_EQ("usage: va [-o|-f|-t|-d]\n", daemon.output());
        EXPECT_EQ("", daemon.log());
        EXPECT_FALSE(std::filesystem::exists(files.file("run/pid")));
    }
}

TEST_F(DaemonTest, ReplacesARunningInstance)
{
    Daemon old(files, {"-t"}, "old");
    ASSERT_TRUE(old.wait_for_log("sim: ta control"));
    Daemon fresh(files, {"-t"}, "fresh");
    EXPECT_TRUE(old.wait_for_exit());
    ASSERT_TRUE(fresh.wait_for_log("sim: ta control"));
    EXPECT_TRUE(fresh.wait_for_log("VA: ==> Warning: Old process is not stop. Waiting now.\n"));
    EXPECT_EQ(std::to_string(fresh.pid()), files.read("run/pid"));
    expect_stop(fresh);
}

TEST_F(DaemonTest, RemovesAStalePidFile)
{
    const pid_t dead = fork();
    if (dead == 0)
        _exit(0);
    ASSERT_EQ(dead, waitpid(dead, nullptr, 0));
    for (const string &content : {std::to_string(dead), string(), string("rubbish")}) {
        files.write("run/pid", content);
        Daemon daemon(files, {"word"});
        ASSERT_TRUE(wait_until([&] { return made().contains("ctrl"); })) << daemon.log();
        EXPECT_NE(string::npos, daemon.log().find("stale"));
        EXPECT_EQ(std::to_string(daemon.pid()), files.read("run/pid"));
        expect_stop(daemon);
        std::filesystem::remove(files.file("run/ctrl"));
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
    EXPECT_EQ(std::set<string>(), made());
    EXPECT_EQ(std::to_string(stubborn), files.read("run/pid"));
    kill(stubborn, SIGKILL);
    waitpid(stubborn, nullptr, 0);
}

TEST_F(DaemonTest, StopsInEveryState)
{
    files.write("scene", "every 50 ta 1 2 3 4\n");
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

TEST_F(DaemonTest, BootsAgainAfterAFailure)
{
    files.write("scene", "fail ne3_cl_cpu3_boot 1 5\n");
    Daemon daemon(files, {"-t"});
    ASSERT_TRUE(daemon.wait_for_log("sim: ta control"));
    EXPECT_NE(string::npos, daemon.log().find("VA: vanafw boot failed.\nVA: errno : 0x00000005\n"));
    EXPECT_EQ(string::npos, daemon.log().find("va_init: fail."));
    expect_stop(daemon);
}

TEST_F(DaemonTest, EndsWhenItCannotStart)
{
    const struct {
        string scene, store, output, log;
    } cases[] = {
        // clang-format off
        {"fail ne3_cl_cpu3_boot 1 5\nfail ne3_cl_cpu3_boot 2 5\n", "", "", "VA: va_init: fail.\n"},
        {"fail ne3_cl_library_init 1 0x1f\n", "", "ne3_cl_library_init fail, errno = 1F .\n", ""},
        {"fail ne3_val_open 1 5\n", "", "", "VA: va_vana_init: ne3_val_open fail.\n"},
        {"", "Properties.ImageSource.Sensor=nosuch\n", "", "Unknow sensor type [nosuch]!\n"},
        {"", "Properties.ImageSource.Sensor=ov9712\nProperties.Image.ProfileMode=720P\n", "", "VA: va_vana_boot: Sensor ov9712 is not supported\n"},
        // clang-format on
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.scene + test.store);
        files.write("scene", test.scene);
        files.store(test.store);
        Daemon daemon(files, {"-t"});
        EXPECT_TRUE(daemon.wait_for_exit());
        EXPECT_NE(string::npos, daemon.output().find(test.output));
        EXPECT_NE(string::npos, daemon.log().find(test.log)) << daemon.log();
        EXPECT_NE(string::npos, daemon.log().find("VA: Application quit.\n"));
        EXPECT_EQ(string::npos, daemon.output().find("va_proc: end")); // no thread was started
        EXPECT_FALSE(std::filesystem::exists(files.file("run/pid")));
    }
}

TEST_F(DaemonTest, GoesOnServingWithoutAnalytics)
{
    const std::pair<const char *, const char *> cases[] = {
        {"fail ne3_val_ta_open 1 5\n", "VA: ta_open failed.\n"},
        {"fail ne3_val_ta_start 1 5\n", "VA: start failed.\n"},
        {"fail ne3_val_ta_get_data 3 5\n", "VA: ne3_val_ta_get_data failed.\n"},
    };
    for (const auto &[scene, log] : cases) {
        files.write("scene", scene);
        Daemon daemon(files, {"-td"});
        EXPECT_TRUE(daemon.wait_for_output("va_proc: end\n"));
        EXPECT_TRUE(daemon.wait_for_log(log));
        const Client client(files.file("run/ta"));
        EXPECT_TRUE(daemon.wait_for_output("run/ta: accept client. previous clients=0\n"));
        expect_stop(daemon);
    }
}

// What is in the way of the daemon's files costs that file, not the daemon.
TEST_F(DaemonTest, LivesWithABadRunDirectory)
{
    const auto expect_service = [&](const char *complaint) {
        Daemon daemon(files, {"-t"});
        string record;
        EXPECT_TRUE(Client(files.file("run/ta")).next(record));
        EXPECT_TRUE(daemon.wait_for_output(complaint));
        expect_stop(daemon);
    };
    files.write("scene", "every 50 ta 1 2 3 4\n");
    files.write("run/ctrl", "not a FIFO");
    expect_service("msg_read(): error ************************************!\n");
    std::filesystem::remove_all(files.file("run")); // made by the daemon, too late for the PID file
    expect_service("Can't open run/pid .\n");
    std::filesystem::remove_all(files.file("run"));
    files.write("run", "not a directory");
    Daemon daemon(files, {"-t"});
    EXPECT_TRUE(daemon.wait_for_log("sim: ta control"));
    EXPECT_TRUE(daemon.wait_for_log("Can't bind socket !\n"));
    EXPECT_TRUE(daemon.wait_for_log("create pipe run/ctrl fail!"));
    EXPECT_TRUE(daemon.wait_for_output("msg_start: fail !\n"));
    expect_stop(daemon);
}

} // namespace
