#include "tests/support/capture.h"
#include "tests/support/temp_dir.h"
#include "util/util.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;

std::string content(const std::string &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

class Util : public testing::Test
{
protected:
    TempDir dir;
    const std::string path = dir.file("name");
};

TEST_F(Util, WritesReplaceTheFile)
{
    EXPECT_EQ(file_write_str(path.c_str(), "a longer text"), 0);
    EXPECT_EQ(file_write(path.c_str(), "a\0b", 3), 0);
    EXPECT_EQ(content(path), std::string("a\0b", 3));
    EXPECT_EQ(file_printf(path.c_str(), "%d-%s", 42, "x"), 0);
    EXPECT_EQ(content(path), "42-x");
    EXPECT_EQ(file_printf(path.c_str(), "%5000d", 42), 0);
    EXPECT_EQ(content(path), std::string(4095, ' ')) << "cut";
    EXPECT_EQ(file_write(path.c_str(), "", 0), 0);
    EXPECT_EQ(content(path), "");
}

TEST_F(Util, OpenFailureIsReported)
{
    const std::string missing = path + "/file";
    int result = 0;
    EXPECT_EQ(stdout_of([&] { result = file_write_str(missing.c_str(), "x"); }),
              "Can't open " + missing + " .\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(stderr_of([&] { result = pipe_open(missing.c_str()); }),
              "create pipe " + missing + " fail!");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(file_write_str("/dev/full", "x"), -1);
}

TEST_F(Util, PipeOpensWithoutAPeer)
{
    umask(0);
    const int fd = pipe_open(path.c_str());
    EXPECT_EQ(fs::status(path).permissions(), fs::perms{0777});
    EXPECT_EQ(pipe_write(path.c_str(), "a", 1), 0);
    EXPECT_EQ(pipe_printf(path.c_str(), "%d", 1), 0);
    char text[8];
    EXPECT_EQ(read(fd, text, sizeof text), 2);
    EXPECT_EQ(read(fd, text, sizeof text), -1) << "writers that are gone are no end of file";

    const std::string block(static_cast<std::size_t>(fcntl(fd, F_GETPIPE_SZ)) - 1, 'x');
    EXPECT_EQ(pipe_write_str(path.c_str(), block.c_str()), 0);
    EXPECT_EQ(pipe_write_str(path.c_str(), std::string(8192, 'y').c_str()), -1) << "full";
    close(fd);
}

TEST_F(Util, MakesDirectories)
{
    std::string deep = path;
    while (deep.size() < 3800)
        deep += "/" + std::string(200, 'd');
    umask(027);
    for (const std::string &made : {dir.file("a/b/c"), dir.file("t/u/"), dir.file("e//f"), deep}) {
        EXPECT_EQ(dir_create(made.c_str()), 0);
        EXPECT_EQ(fs::status(made).permissions(), fs::perms{0750}) << made;
        EXPECT_EQ(dir_create(made.c_str()), 0);
    }
    EXPECT_EQ(dir_create((deep + std::string(20000, '/') + "x").c_str()), 0);
    EXPECT_EQ(dir_create("/dev/null/under"), 0);
}

TEST(Bytes, AreLittleEndian)
{
    std::uint8_t bytes[4];
    for (const std::uint32_t value : {0x11223344u, 0u, 0xFFFFFFFFu, 0x80000001u}) {
        long2str(bytes, value);
        EXPECT_EQ(buf2long(bytes), value);
        EXPECT_EQ(bytes[3], value >> 24);
        short2str(bytes, static_cast<int>(~value));
        EXPECT_EQ(buf2short(bytes), ~value & 0xFFFF);
        EXPECT_EQ(bytes[3], value >> 24);
    }
}

TEST(Text, ChangesCase)
{
    char text[] = "aZ09-\xC4\xE4";
    strtoupper(text);
    EXPECT_STREQ(text, "AZ09-\xC4\xE4");
    strtolower(text);
    EXPECT_STREQ(text, "az09-\xC4\xE4");
}

} // namespace
