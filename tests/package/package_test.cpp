#include "tests/support/daemon.h"

#include <csignal>

#include <gtest/gtest.h>

namespace
{

// The example, built against the installed package, as a client of the real daemon.
TEST(PackageTest, TheExamplePrintsObjectsUntilTheStreamEnds)
{
    const DaemonFiles files;
    files.write("scene", "od_interval 20\nperiod 400\n"
                         "object 7 dynamic 192x108 from 480,540 to 480,540 between 0 400\n"
                         "object 8 static 384x216 from 1000,540 to 1000,540 between 0 400\n");
    Daemon daemon(files, {"-o"});
    EXPECT_TRUE(Client(files.file("run/od")).next());
    Program counting(OD_CLIENT, files.path(), {"-n", "2", "run/od"}, "counting");
    EXPECT_TRUE(counting.wait_for_exit());
    const std::string output = counting.output();
    EXPECT_EQ(0U, output.find("2 object(s)\n 7 3 384 486 192 108 480 540 "));
    EXPECT_NE(std::string::npos, output.find("\n 8 19 808 432 384 216 1000 540 "));

    Program endless(OD_CLIENT, files.path(), {"run/od"}, "endless");
    EXPECT_TRUE(endless.wait_for_output("\n 8 "));
    daemon.signal(SIGTERM);
    EXPECT_TRUE(endless.wait_for_exit(1));
    EXPECT_EQ("od_client: the stream has ended\n", endless.log());
}

} // namespace
