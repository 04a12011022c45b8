#include "tests/support/capture.h"
#include "tests/support/program.h"
#include "tests/support/temp_dir.h"
#include "util/util.h"

#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace
{

TEST(Util, WritesReplaceTheFileOrReport)
{
    const TempDir dir;
    const std::string path = dir.file("name");
    const std::string missing = path + "/file";
    EXPECT_EQ(file_printf(path.c_str(), "%5000d", 42), 0);
    EXPECT_EQ(read_file(path), std::string(4095, ' ')) << "cut";
    EXPECT_EQ(file_write(path.c_str(), "a\0b", 3), 0);
    EXPECT_EQ(read_file(path), std::string("a\0b", 3));
    EXPECT_EQ(file_write_str("/dev/full", "x"), -1);
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(file_write_str(missing.c_str(), "x"), -1); }),
              "Can't open " + missing + " .\n");
    EXPECT_EQ(stderr_of([&] { EXPECT_EQ(pipe_open(missing.c_str()), -1); }),
              "create pipe " + missing + " fail!");
}

TEST(Util, MakesDirectories)
{
    const TempDir dir;
    std::string deep = dir.file("deep");
    while (deep.size() < 3800)
        deep += "/" + std::string(200, 'd');
    umask(027);
    for (const std::string &path : {dir.file("a/b/c"), dir.file("t/u/"), dir.file("e//f"), deep}) {
        EXPECT_EQ(dir_create(path.c_str()), 0);
        EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms{0750});
    }
    EXPECT_EQ(dir_create((deep + std::string(20'000, '/') + "x").c_str()), 0);
    EXPECT_EQ(dir_create("/dev/null/under"), 0);
}

TEST(Util, BytesAreLittleEndian)
{
    char bytes[] = "\x44\x33\x22\x91";
    EXPECT_EQ(buf2long(bytes), 0x91223344);
    EXPECT_EQ(buf2short(bytes + 2), 0x9122);
    short2str(bytes, -2);
    EXPECT_STREQ(bytes, "\xFE\xFF\x22\x91");
    long2str(bytes, 0x81828384);
    EXPECT_STREQ(bytes, "\x84\x83\x82\x81");
}

} // namespace
