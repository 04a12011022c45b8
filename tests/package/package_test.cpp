#include "tests/support/daemon.h"
#include "tests/support/store_file.h"

#include <gtest/gtest.h>

namespace
{

// The examples, the one in C++ built against the installed package, as clients of the real daemon.
// They wait for it, outlive it, and connect to the next one.
TEST(PackageTest, TheExamplesPrintWhatTheDaemonSends)
{
    const DaemonFiles files;
    const Program cpp(OD_CLIENT, files.path(), {"run"}, "cpp");
    const Program python("/usr/bin/python3", files.path(), {EXAMPLES "/client.py", "-d", "run"},
                         "py");
    const Program shell("/bin/sh", files.path(), {EXAMPLES "/client.sh", "ta", "run"}, "sh");
    for (const std::string round : {"1", "2"}) {
        files.write("scene",
                    "od_interval 20\nperiod 400\nevery 100 ta 4 5 6 " + round + "\nobject " +
                        round +
                        " dynamic 192x108 from 480,540 to 480,540 between 0 400\n"
                        "object 8 static 384x216 from 1000,540 to 1000,540 between 0 400\n");
        files.store("");
        const Daemon daemon(files, {"-o", "-t"});
        EXPECT_TRUE(cpp.wait_for_output("2 object(s)\n " + round + " 3 384 486 192 108 480 540 "));
        EXPECT_TRUE(python.wait_for_output("ta 4 5 6 " + round + "\n"));
        EXPECT_TRUE(shell.wait_for_output("ta 4 5 6 " + round + "\n"));

        files.store(window("VMDWindow.NonDetect.V0.", 0, 5000, 0, 9999));
        const Program control("/usr/bin/python3", files.path(),
                              {EXAMPLES "/client.py", "-d", "run", "--reconfig"}, "reconfig");
        EXPECT_TRUE(control.wait_for_output("od 8 19 ")) << "object in front of it still seen";
    }
}

} // namespace
